// Files and directories of the POSIX system, with what only POSIX has: pipes,
// symbolic links, permissions.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/System.h"
#include "support/TestSystem.h"

namespace {

namespace fs = std::filesystem;

constexpr EOpenMode kEveryMode[] = {EOpenMode::kRead, EOpenMode::kUpdate, EOpenMode::kCreate,
                                    EOpenMode::kAppend};

TEST(PosixFile, OnlyRegularFilesOpenAndNoOpenHangs) {
  const CTempDirectory temp;
  ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0666), 0);
  for (const EOpenMode mode : kEveryMode) {
    for (const std::string& path : {temp.Path(), temp / "pipe", std::string("/dev/null")}) {
      std::unique_ptr<ISystemFile> file;
      EXPECT_EQ(System().OpenFile(path, mode, file), ESystemError::kNotRegular) << path;
    }
  }
}

TEST(PosixFile, NeverTakesTheNumberOfAClosedStandardStream) {
  const CTempDirectory temp;
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  std::unique_ptr<ISystemFile> file;
  EXPECT_EQ(System().OpenFile(temp / "data", EOpenMode::kCreate, file), ESystemError::kNone);
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  dup2(saved, STDIN_FILENO);
  close(saved);
}

TEST(PosixDirectory, AListingShowsAttributesSizesAndOneOrderEverywhere) {
  const CTempDirectory temp;
  const fs::path root = temp.Path();
  WriteWholeFile(temp / "list/b.bin", "12345");
  WriteWholeFile(temp / "list/.hidden", "1");
  WriteWholeFile(temp / "list/a\xFF", "");
  WriteWholeFile(temp / "list/locked", "12");
  fs::create_directories(root / "list/E");
  fs::create_directories(root / "list/.Git");
  fs::create_directory_symlink(root / "list", root / "list/D");
  fs::permissions(root / "list/locked", fs::perms(0444));

  std::vector<SDirectoryEntry> entries;
  EXPECT_EQ(System().ListDirectory(temp / "list\\", entries), ESystemError::kNone);
  std::string text;
  for (const auto& [name, attributes, size, created] : entries) {
    text += name + " " + std::to_string(attributes) + " " + std::to_string(size) + "\n";
  }
  EXPECT_EQ(text,
            ". 16 0\n.. 16 0\n.Git 18 0\n.hidden 2 1\na\xFF 128 0\nb.bin 128 5\n"
            "D 1024 0\nE 16 0\nlocked 1 2\n");
}

// Clearing refuses the root by the same check; only this one is safe to try.
TEST(PosixDirectory, TheRootIsRefusedUnderEveryName) {
  const CTempDirectory temp;
  fs::create_directory_symlink("/", temp / "toRoot");
  std::vector<SDirectoryEntry> entries;
  for (const std::string& path : {std::string("/"), std::string("\\"), std::string("/../."),
                                  std::string("/tmp/.."), temp / "toRoot"}) {
    EXPECT_EQ(System().ListDirectory(path, entries), ESystemError::kBadPath) << path;
  }
  EXPECT_EQ(System().RemoveEmptyDirectory("//"), ESystemError::kBadPath);
}

TEST(PosixDirectory, ClearingDeletesEverythingInsideAndNothingOutside) {
  const CTempDirectory temp;
  const fs::path root = temp.Path();
  WriteWholeFile(temp / "victim/canary", "alive");
  WriteWholeFile(temp / "prj/sub/deep/file", "x");
  WriteWholeFile(temp / "prj/.hidden", "x");
  fs::create_symlink(root / "victim/canary", root / "prj/sub/link");
  fs::create_directory_symlink(root / "victim", root / "prj/dirlink");
  // Translated, this name would lead to the victim.
  const int prj = open((temp / "prj").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(mkdirat(prj, "..\\victim", 0777), 0);
  close(openat(prj, "..\\victim\\canary", O_CREAT | O_WRONLY, 0666));
  close(prj);

  EXPECT_EQ(System().ClearDirectory(temp / "prj\\"), ESystemError::kNone);

  EXPECT_TRUE(fs::is_empty(root / "prj"));
  fs::create_directory_symlink(root / "victim", root / "link");
  for (const char* const name : {"link", "link/", "link\\\\"}) {
    EXPECT_NE(System().ClearDirectory(temp / name), ESystemError::kNone) << name;
  }
  EXPECT_EQ(ReadWholeFile(temp / "victim/canary"), "alive");
}

TEST(PosixDirectory, ClearingGoesDeeperThanThereAreDescriptors) {
  constexpr int kDepth = 1900;  // more than the usual 1024 descriptors
  const CTempDirectory temp;
  std::string path = temp.Path();
  for (int i = 0; i < kDepth; ++i) {
    path += "d/";
    ASSERT_EQ(System().MakeDirectory(path), ESystemError::kNone);
  }
  EXPECT_EQ(System().ClearDirectory(temp.Path()), ESystemError::kNone);
  EXPECT_TRUE(fs::is_empty(temp.Path()));
}

}  // namespace

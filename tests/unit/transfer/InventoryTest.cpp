// Inventories and damage notes: their texts, what is refused, and that one is
// always left.

#include "transfer/Inventory.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/Inventories.h"
#include "support/TestSystem.h"
#include "transfer/DamageNote.h"
#include "transfer/SealedText.h"

namespace {

const std::string kHead =
    "# kqft.inventory 1\n# generation 1\n# state complete\n# run run-1\n# by ada@mill\n"
    "# at 2026-03-08T14:05:11Z\n";
const std::string kDigest = "00112233445566778899aabbccddeeff";

TEST(Inventory, TextIsTheOneThatOthersCheckAndComesBack) {
  const bool canCheck = std::system("command -v xxhsum >/dev/null") == 0;
  const CTempDirectory directory;
  CInventory inventory = InventoryOf(directory.Path(), {});
  for (const std::string name : {" a%", "b/c \xFF", "n\nl", "run.tm"}) {
    const std::string path = directory / (canCheck ? name : "f");
    WriteWholeFile(path, name);
    SetFileFacts(path, {0, 1772978711000000100, 0644});
    inventory.Set(name, EntryOf(path));
  }
  inventory.Set("new one", {{7, -5, 0600}, false, {}});
  inventory.Set("torn", {{7, 0, 0600}, false, {}, true});
  const std::string golden =
      kHead +
      "# file 3 1772978711000000100 644\nb2ee7e0047731f4ff72337669cbe0e53   a%\n"
      "# file 5 1772978711000000100 644\n697a35ed7dd73d41b43ff928658e7892  b/c \xFF\n"
      "# file 3 1772978711000000100 644 n%0Al fca991670f71a02d3475317ea77699ef\n"
      "# file 7 -5 600 new%20one\n"
      "# file 6 1772978711000000100 644\n4d1c676a3a8918de0a832df061c7572a  run.tm\n"
      "# file 7 - 600 torn\n"
      "# end 47a7af70c427232a8abdb9f3e220e4ac\n";
  EXPECT_EQ(inventory.Text(), golden);

  MakeSparseFile(directory / "run.tm", kBlocksAboveBytes + 1);
  inventory.Set("run.tm", EntryOf(directory / "run.tm"));
  CInventory again;
  EXPECT_EQ(again.Parse(inventory.Text()), "");
  EXPECT_EQ(again.Text(), inventory.Text());
  EXPECT_EQ(again.Find("run.tm")->m_digest, inventory.Find("run.tm")->m_digest);
  EXPECT_FALSE(again.Find("new one")->m_bDigest || again.Find("new one")->m_bMixed);
  EXPECT_TRUE(again.Find("torn")->m_bMixed);

  WriteWholeFile(directory / kInventoryName, inventory.Text());
  if (!canCheck) return;
  const std::string check = "cd " + directory.Path() + " && xxhsum -c kqft.inventory >out 2>&1";
  EXPECT_EQ(std::system(check.c_str()), 0) << ReadWholeFile(directory / "out");
  EXPECT_NE(ReadWholeFile(directory / "out").find("run.tm: OK"), std::string::npos);
  WriteWholeFile(directory / " a%", "?");
  EXPECT_NE(std::system(check.c_str()), 0);
}

TEST(Inventory, TornChangedAndHostileTextsAreRefused) {
  const std::string entry = "# file 1 2 644\n" + kDigest + "  ";
  const std::string good = Seal(kHead + entry + "a\n# file 1 2 644 b\n");
  CInventory inventory;
  CDamageNote note;
  note.Set("# odd", {3, 9});
  note.Set("a/missing", {});
  CDamageNote sameNote;
  EXPECT_EQ(sameNote.Parse(note.Text()), "");
  EXPECT_EQ(sameNote.GetFiles(), note.GetFiles());
  for (const std::string& text : {good, note.Text()}) {
    EXPECT_TRUE(inventory.Parse(text).empty() || sameNote.Parse(text).empty());
    for (std::size_t i = 0; i < text.size(); ++i) {
      std::string flipped = text;
      flipped[i] = static_cast<char>(flipped[i] ^ 1);
      for (const std::string& bad : {text.substr(0, i), flipped}) {
        EXPECT_NE(inventory.Parse(bad), "") << i;
        EXPECT_NE(sameNote.Parse(bad), "") << i;
      }
    }
  }
  const std::string aLot(2 * kLongestProjectPath, 'a');
  for (const std::string& name :
       {std::string("/etc/passwd"), std::string("../a"), std::string("a/../../b"),
        std::string("a//b"), std::string("a/"), std::string(), std::string("."),
        std::string("a\0b", 3), std::string("..\\..\\a"), std::string("KQFT.inventory"),
        std::string("kqft.damaged"), aLot}) {
    EXPECT_NE(inventory.Parse(Seal(kHead + entry + name + "\n")), "") << name;
    EXPECT_NE(inventory.Parse(Seal(kHead + "# file 1 2 644 " + EscapeName(name) + "\n")), "");
    EXPECT_NE(note.Set(name, {}), "") << name;
  }
  const std::string large = "# file 67108865 2 644\n", seventeen = [] {
    std::string text = "# blocks";
    for (int i = 0; i < 17; ++i) text += " " + kDigest;
    return text + "\n";
  }();
  EXPECT_EQ(inventory.Parse(Seal(kHead + large + seventeen + kDigest + "  a\n")), "");
  for (const std::string& body :
       {std::string(), std::string("# file 1 2 644\n"), "# file 1 2 644\n" + kDigest + " a\n",
        std::string("# file -1 2 644 a\n"), std::string("# file 1 2 1000 a\n"),
        "# file 1 - 644\n" + kDigest + "  a\n", std::string("# file 9223372036854775808 2 644 a\n"),
        std::string("# file 1 2 644 a b\n"), std::string("# file 1 2 644 a%2\n"),
        large + kDigest + "  a\n", large + "# blocks " + kDigest + "\n" + kDigest + "  a\n",
        "# file 1 2 644\n" + seventeen + kDigest + "  a\n", entry + "a\n# file 1 2 644 a\n"}) {
    const std::string head = body.empty() ? kHead.substr(0, kHead.size() - 2) + "\n" : kHead;
    EXPECT_NE(inventory.Parse(Seal(head + body)), "") << body;
    EXPECT_TRUE(inventory.GetFiles().empty());
  }
}

TEST(Inventory, WritingOneNeverCostsTheFormerWhereverItIsCut) {
  std::map<std::string, std::string> places = {{kInventoryName, ""}, {kOtherInventoryName, ""}};
  const auto choose = [&](std::map<std::string, std::string>& at) {
    return ChooseInventory(at[kInventoryName], at[kOtherInventoryName]);
  };
  EXPECT_FALSE(choose(places).m_bFound);
  for (std::int64_t generation = 1; generation < 6; ++generation) {
    CInventory next = choose(places).m_inventory;
    next.m_head = {generation, generation % 2 == 0, "r", "ada@mill", 0};
    next.Set("f" + std::to_string(generation), {});
    const std::string place = choose(places).m_strNextPlace, text = next.Text();
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
      std::map<std::string, std::string> then = places;
      then[place] = text.substr(0, cut);
      const SInventoryChoice left = choose(then);
      const std::int64_t expected = cut == text.size() ? generation : generation - 1;
      ASSERT_EQ(left.m_bFound ? left.m_inventory.m_head.m_llGeneration : 0, expected) << cut;
      ASSERT_EQ(left.m_inventory.GetFiles().size(), static_cast<std::size_t>(expected));
      ASSERT_EQ(left.m_strNextPlace == place, cut < text.size());
    }
    places[place] = text;
    EXPECT_EQ(choose(places).m_strPlace, place);
  }
}

TEST(Inventory, WorkOfOthersIsKept) {
  SInventoryEntry known{{5, 6, 0644}, true, {DigestOf("known"), {}}};
  CInventory former, planned;
  for (const char* name : {"touched", "longer", "gone"}) former.Set(name, known);
  planned.Set("touched", {{5, 7, 0644}, false, {}});
  planned.Set("longer", {{9, 6, 0644}, false, {}});
  former.Set("theirs", known);
  planned.MergeFrom(former, [](const std::string& path) { return path == "touched"; });
  EXPECT_TRUE(planned.Find("theirs")->m_bDigest && planned.Find("longer")->m_bDigest);
  EXPECT_FALSE(planned.Find("touched")->m_bDigest);
}

}  // namespace

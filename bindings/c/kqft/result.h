#ifndef KQFT_RESULT_H
#define KQFT_RESULT_H

#include "codes.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kqft_result kqft_result;

/// Why a put sends a file, or does not.
enum {
  KQFT_REASON_NONE = 0,
  KQFT_REASON_NEW = 1,
  KQFT_REASON_RESUMED = 2,
  KQFT_REASON_GROWN = 3,
  KQFT_REASON_SHORTENED = 4,
  KQFT_REASON_CHANGED = 5,
  KQFT_REASON_DAMAGED = 6,
  KQFT_REASON_UNCHANGED = 7,
  KQFT_REASON_EQUAL = 8
};

enum { KQFT_SAME = 0, KQFT_CHANGED = 1, KQFT_MISSING = 2, KQFT_EXTRA = 3, KQFT_UNKNOWN = 4 };

/// One file of a put or get, and what became of it.
typedef struct kqft_item {
  uint32_t size;
  int32_t code;        ///< 1 when done; else of the last failure
  int32_t done;        ///< 1: whole on both sides
  int32_t for_good;    ///< 1: trying again is of no use
  int32_t later;       ///< 1: not done because the file changes just now
  int32_t reason;      ///< of a put
  const char* local;   ///< file of this machine
  const char* server;  ///< its full name at the server
  const char* name;    ///< "PROJECT/dir/file"
  const char* why;     ///< what failed last; "" for nothing
  int64_t bytes;       ///< when it is whole
  int64_t missing;     ///< of a plan: how many are not at the other side
} kqft_item;

/// What a put or get came to. Of a list of files only code, why and may_hide.
typedef struct kqft_summary {
  uint32_t size;
  int32_t code;  ///< what the operation returned
  int32_t cancelled;
  int32_t unlisted;      ///< projects of a first put that the server does not list
  const char* why;       ///< code in words, with what it is about
  const char* project;   ///< "" when there are several
  const char* other;     ///< "user@host" who sends the project, where a put gave way
  const char* may_hide;  ///< without an inventory: what cannot be seen
  int64_t moved;         ///< bytes of file data that crossed the network
  int64_t problems;      ///< left out although they should have been moved
  int64_t filtered;      ///< left out by the rules
  int64_t only_there;    ///< of a put: files that the project has more
  int64_t files_healed;  ///< of a put: damaged at the server, and whole now
  int64_t blocks_healed;
  double seconds;
} kqft_summary;

/// What comparing one file came to.
typedef struct kqft_verdict {
  uint32_t size;
  int32_t verdict;        ///< KQFT_SAME ...
  const char* path;       ///< below the project
  const char* why;        ///< where there is more to say
  int64_t bytes;          ///< that are there
  const int64_t* blocks;  ///< which differ, rising; where that is known
  int64_t block_count;
} kqft_verdict;

/// What comparing a project came to.
typedef struct kqft_check {
  uint32_t size;
  int32_t code;  ///< what the operation returned
  int32_t cancelled;
  int32_t compared;   ///< 1: there was an inventory or a directory to compare with
  int32_t meanwhile;  ///< 1: something was sent while it was compared: do it again
  int32_t unused;
  const char* why;                                 ///< code in words
  const char* remark;                              ///< what there is to say of the whole
  int64_t same, changed, missing, extra, unknown;  ///< files of each verdict
  int64_t left_out;                                ///< what could not be looked into
  int64_t read;                                    ///< bytes that the server was asked for
  double seconds;
} kqft_check;

typedef struct kqft_project {
  uint32_t size;
  int32_t unused;
  const char* name;
  const char* created;  ///< YYYY-MM-DD_HH-MM-SS, as the server writes it
  int64_t bytes;        ///< of all its files
} kqft_project;

typedef struct kqft_file {
  uint32_t size;
  int32_t unused;
  const char* name;    ///< below the project, "/" separating
  const char* server;  ///< its full name there
  const char* digest;  ///< 32 hexadecimal digits; "" when it is not known
  int64_t bytes;       ///< negative when it is not known
  int64_t time_ns;     ///< of the last change, since 1970; 0 when it is not known
} kqft_file;

/// A result does not change, outlives its client, and owns the strings of the
/// structs that it fills. Any threads at a time. Never blocks.
KQFT_C_API void kqft_result_destroy(kqft_result* result);
KQFT_C_API int64_t kqft_result_count(const kqft_result* result);  ///< 0 of NULL
/// @return KQFT_E_ARGUMENT beyond the count, KQFT_E_KIND for other entries
KQFT_C_API int32_t kqft_result_project(const kqft_result* result, int64_t index, kqft_project* out);
KQFT_C_API int32_t kqft_result_file(const kqft_result* result, int64_t index, kqft_file* out);
KQFT_C_API int32_t kqft_result_item(const kqft_result* result, int64_t index, kqft_item* out);
KQFT_C_API int32_t kqft_result_verdict(const kqft_result* result, int64_t index, kqft_verdict* out);
KQFT_C_API int32_t kqft_result_summary(const kqft_result* result, kqft_summary* out);
KQFT_C_API int32_t kqft_result_check(const kqft_result* result, kqft_check* out);
/// @param index below kqft_summary.unlisted
KQFT_C_API const char* kqft_result_unlisted(const kqft_result* result, int64_t index);

#ifdef __cplusplus
}
#endif

#endif

# What a build for another system takes from the one that it runs on: headers,
# and GoogleTest as source. They are seen through a folder that holds nothing
# else, for beside them lie the headers of this system.
set(borrowed ${PROJECT_BINARY_DIR}/borrowed)
file(MAKE_DIRECTORY ${borrowed})
foreach(header CLI xxhash.h)
  if(NOT EXISTS /usr/include/${header})
    message(FATAL_ERROR "/usr/include/${header} is missing: install libcli11-dev and libxxhash-dev")
  endif()
  file(CREATE_LINK /usr/include/${header} ${borrowed}/${header} SYMBOLIC)
endforeach()
include_directories(SYSTEM ${borrowed})

add_library(CLI11::CLI11 INTERFACE IMPORTED)
if(KQFT_BUILD_TESTS)
  add_subdirectory(/usr/src/googletest/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(target gtest gtest_main)
    if(NOT TARGET GTest::${target})
      add_library(GTest::${target} ALIAS ${target})
    endif()
  endforeach()
endif()

# Warnings and sanitizers that every target of the project is built with.
add_library(kqft_settings INTERFACE)
if(MSVC)
  target_compile_options(kqft_settings INTERFACE /W4 /WX /utf-8)
else()
  target_compile_options(kqft_settings INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # False alarms on "literal" + std::string when optimising (GCC PR105651).
    target_compile_options(kqft_settings INTERFACE -Wno-restrict)
  endif()
endif()
if(KQFT_SANITIZE)
  target_compile_options(kqft_settings INTERFACE
    -fsanitize=${KQFT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kqft_settings INTERFACE -fsanitize=${KQFT_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumentation makes GCC see short strings written out of bounds.
    target_compile_options(kqft_settings INTERFACE -Wno-array-bounds -Wno-stringop-overflow)
  endif()
endif()
if(WIN32)
  set(KQFT_OS windows)
else()
  set(KQFT_OS posix)
endif()

# Headers of Windows define names that other sources use for themselves, so that
# what includes them is compiled alone.
function(kqft_keep_apart)
  list(FILTER ARGN INCLUDE REGEX "/windows/")
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# The tests of a build for Windows; on another system they run under Wine.
set(required)
if(CMAKE_CROSSCOMPILING)
  set(wine ${CMAKE_CURRENT_SOURCE_DIR}/wine.sh ${PROJECT_BINARY_DIR}/wine)
  set_target_properties(kqft_tests PROPERTIES CROSSCOMPILING_EMULATOR "${wine};test")
  foreach(step start stop)
    add_test(NAME ${KQFT_TEST_PREFIX}Wine-${step} COMMAND ${wine} ${step})
  endforeach()
  set_tests_properties(${KQFT_TEST_PREFIX}Wine-start PROPERTIES FIXTURES_SETUP wine)
  set_tests_properties(${KQFT_TEST_PREFIX}Wine-stop PROPERTIES FIXTURES_CLEANUP wine)
  set(required FIXTURES_REQUIRED wine)
endif()

if(KQFT_BUILD_PROGRAMS AND CMAKE_CROSSCOMPILING)
  add_test(NAME ${KQFT_TEST_PREFIX}Package
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/windows/check-package.sh
      ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
  add_test(NAME ${KQFT_TEST_PREFIX}Pairings
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/windows/exchange.py
      ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/build/dev --files 20 --mib 24)
  set_tests_properties(${KQFT_TEST_PREFIX}Package ${KQFT_TEST_PREFIX}Pairings
    PROPERTIES TIMEOUT 300 COST -2 ${required})
  set_tests_properties(${KQFT_TEST_PREFIX}Pairings PROPERTIES RUN_SERIAL ON)
endif()

# What waits for answers by the real clock gets a processor more, for every step
# of Wine's goes through one process. What takes minutes there is left out
# (docs/windows.md), fewer faults and meetings are drawn, and the clock of tests
# hurries less. Where tests of several builds run together, these come behind
# all others by their COST, the longest of them first.
set(longest "Both/*:ProgramPut.NeverMixes*")
set(heavy "Program*:Transfer*:SeveralCalls.*")
set(left_out "Download.ConfirmationOfAStop*:Both/TransferFault.Connections*/get")
gtest_discover_tests(kqft_tests TEST_PREFIX "${KQFT_TEST_PREFIX}"
  TEST_FILTER "-${longest}:${heavy}:${left_out}" TEST_LIST light
  DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 COST -2
  ENVIRONMENT "KQFT_SWEEP=coarse;KQFT_SLOWER=10" ${required})
set(hurried "KQFT_SWEEP=coarse;KQFT_SLOWER=5;KQFT_FAULT_SHARE=20;KQFT_MEETINGS=3")
gtest_discover_tests(kqft_tests TEST_PREFIX "${KQFT_TEST_PREFIX}"
  TEST_FILTER "${longest}:-${left_out}" TEST_LIST long
  DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 COST -1
  PROCESSORS 2 ENVIRONMENT "${hurried}" ${required})
gtest_discover_tests(kqft_tests TEST_PREFIX "${KQFT_TEST_PREFIX}"
  TEST_FILTER "${heavy}:-${longest}:${left_out}" TEST_LIST heavy
  DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 COST -2
  PROCESSORS 2 ENVIRONMENT "${hurried}" ${required})

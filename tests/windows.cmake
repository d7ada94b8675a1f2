# The tests of a build for Windows; on another system they run under Wine.
set(required)
if(CMAKE_CROSSCOMPILING)
  set(wine ${CMAKE_CURRENT_SOURCE_DIR}/wine.sh ${PROJECT_BINARY_DIR}/wine)
  set_target_properties(kqft_tests PROPERTIES CROSSCOMPILING_EMULATOR "${wine}")
  foreach(step start stop)
    add_test(NAME ${KQFT_TEST_PREFIX}Wine-${step} COMMAND ${wine} ${step})
  endforeach()
  set_tests_properties(${KQFT_TEST_PREFIX}Wine-start PROPERTIES FIXTURES_SETUP wine)
  set_tests_properties(${KQFT_TEST_PREFIX}Wine-stop PROPERTIES FIXTURES_CLEANUP wine)
  set(required FIXTURES_REQUIRED wine)
endif()

# docs/windows.md says why of each.
string(JOIN ":" left_out
  -Inventory.TextIsTheOneThatOthersCheckAndComesBack
  FileFacts.TimesAndModesComeBackToTheNanosecondAndFarOnesDoNoHarm
  Download.FreeSpaceMustHoldTheWholeRequest
  Download.ConfirmationOfAStopIsNeverLost
  ClientLog.FileIsBegunAnewBeyondTheLimitAndReopenedAfterSixtySeconds
  ProgramVerify.FindsAndNotesEveryDamageWithItsBlock
  ProgramVerify.WorkstationComparesBothSides
  ProgramVerify.SegmentsAreComparedWithTheirPartsOfTheFileHere
  ProgramTransfer.TreeGoesUpAndComesDownByteForByte
  ProgramTransfer.EveryFileThatFailsIsNamedAndTheOthersArrive
  ProgramPut.SendsWhatChangedAndSaysWhy
  ProgramGet.FindsWhatLiesDeepOrInHiddenDirectoriesWithoutAnInventory
  SeveralCalls.OfTwoWorkstationsAtOnceOneGivesWay
  Both/TransferFault.*)
gtest_discover_tests(kqft_tests TEST_PREFIX "${KQFT_TEST_PREFIX}" TEST_FILTER "${left_out}"
  DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 ${required})

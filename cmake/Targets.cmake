# sendoff_library(NAME SOURCES file... [LINK target...] [PRIVATE_LINK target...])
#
# One folder, one static library. Headers are included as "folder/Header.h" from the source root.
function(sendoff_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} PRIVATE ${PROJECT_BINARY_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
endfunction()

# sendoff_test(NAME SOURCES file... [LINK target...] [LABELS label...])
#
# One test program per tested folder; each test of it is one entry of ctest.
function(sendoff_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} test_support GTest::gmock GTest::gtest_main)
  # Quicker to compile than to run a little faster.
  target_compile_options(${name} PRIVATE -O0)
  set_target_properties(${name} PROPERTIES
                        RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests/bin)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300 LABELS "${ARG_LABELS}")
endfunction()

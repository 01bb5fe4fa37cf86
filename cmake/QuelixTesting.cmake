# quelix_add_test(<name> SOURCES <files...> LIBS <targets...> [LABELS <labels...>] [TIMEOUT <s>])
#
# Builds a Qt Test executable and registers it with CTest. Every test runs under
# tests/run-isolated, which gives it a fresh temporary HOME (and so a fresh documents
# folder) and the offscreen platform, and removes the HOME afterwards.
set(QUELIX_TEST_RUNNER ${CMAKE_CURRENT_LIST_DIR}/../tests/run-isolated)

function(quelix_add_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  target_link_libraries(${name} PRIVATE ${T_LIBS} Qt5::Test)
  add_test(NAME ${name} COMMAND ${QUELIX_TEST_RUNNER} $<TARGET_FILE:${name}>)
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT})
  if(T_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}")
  endif()
endfunction()

# quelix_add_bench(<name> SOURCES <files...> LIBS <targets...>)
#
# Benchmarks land in build/bench-bin; scripts/bench runs every program found there and
# prints the figure lines they write. A benchmark starts (and stops) the servers it needs.
function(quelix_add_bench name)
  cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${B_SOURCES})
  set_target_properties(${name} PROPERTIES AUTOMOC ON
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench-bin)
  target_link_libraries(${name} PRIVATE ${B_LIBS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/bench/support)
endfunction()

# Tests: GoogleTest through CTest, one process per test case (gtest_discover_tests),
# labelled unit (beside the code), sim (simulators over loopback) and ceph (sandbox cluster).
find_package(GTest REQUIRED)
include(GoogleTest)

file(GLOB support_srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/*.cpp)
add_library(au_test_support STATIC ${support_srcs})
target_link_libraries(au_test_support PUBLIC agentutil_external GTest::gtest GTest::gmock)
if(TARGET au_log)
  target_link_libraries(au_test_support PUBLIC au_log)
endif()
# tests/support/http_test_server: cpp-httplib (Debian builds it as a library, HTTPS on).
find_package(OpenSSL REQUIRED)
pkg_check_modules(CPPHTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
target_link_libraries(au_test_support PUBLIC PkgConfig::CPPHTTPLIB OpenSSL::SSL OpenSSL::Crypto)
# The self-signed certificate maker is the simulators' own (sim/common).
if(TARGET au_sim)
  target_link_libraries(au_test_support PUBLIC au_sim)
endif()

# Extra support targets (fake shared libraries and the like) live in their own folders.
file(GLOB support_dirs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/*/CMakeLists.txt)
foreach(f IN LISTS support_dirs)
  get_filename_component(d ${f} DIRECTORY)
  add_subdirectory(${d})
endforeach()

function(agentutil_test_executable name label)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} au_test_support GTest::gmock_main)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    PROPERTIES LABELS ${label} ENVIRONMENT "AGENTUTIL_BUILD_DIR=${PROJECT_BINARY_DIR}")
endfunction()

# Unit tests: every <name>_test.cpp beside the code of a component.
get_property(component_dirs GLOBAL PROPERTY AGENTUTIL_COMPONENT_DIRS)
foreach(entry IN LISTS component_dirs)
  string(REPLACE "=" ";" pair ${entry})
  list(GET pair 0 comp)
  list(GET pair 1 dir)
  file(GLOB tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*_test.cpp)
  if(tests)
    agentutil_test_executable(${comp}_test unit SOURCES ${tests} LIBS ${comp})
  endif()
endforeach()

# Integration tests: one executable per label folder.
foreach(label sim ceph)
  file(GLOB tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/integration/${label}/*.cpp)
  if(tests)
    set(libs agentutil_static)
    if(TARGET au_sim)
      list(APPEND libs au_sim)
    endif()
    agentutil_test_executable(${label}_tests ${label} SOURCES ${tests} LIBS ${libs})
  endif()
endforeach()

# Fuzz targets replay what fuzzing kept (tests/fuzz/regressions/<name>-*, seeds/<name>,
# corpus/<name>) through a plain driver, so make test and make asan run them with gcc.
file(GLOB fuzzers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/fuzz/*_fuzz.cpp)
foreach(f IN LISTS fuzzers)
  get_filename_component(n ${f} NAME_WE)
  string(REGEX REPLACE "_fuzz$" "" n ${n})
  set(fuzz_dir ${PROJECT_SOURCE_DIR}/tests/fuzz)
  file(GLOB inputs CONFIGURE_DEPENDS ${fuzz_dir}/regressions/${n}-*)
  foreach(d seeds/${n} corpus/${n})
    if(IS_DIRECTORY ${fuzz_dir}/${d})
      list(APPEND inputs ${fuzz_dir}/${d})
    endif()
  endforeach()
  add_executable(fuzz_replay_${n} ${f} ${fuzz_dir}/replay_main.cpp)
  target_link_libraries(fuzz_replay_${n} PRIVATE agentutil_static)
  add_test(NAME fuzz_replay.${n} COMMAND fuzz_replay_${n} ${inputs})
  set_tests_properties(fuzz_replay.${n} PROPERTIES LABELS unit)
endforeach()

# The sim and ceph tests run the built programs (agentutil, the simulators) as a user would.
if(TARGET sim_tests)
  foreach(program agentutil_cli backupd-sim oceanstor-sim)
    if(TARGET ${program})
      add_dependencies(sim_tests ${program})
    endif()
  endforeach()
endif()
if(TARGET ceph_tests AND TARGET agentutil_cli)
  add_dependencies(ceph_tests agentutil_cli)
endif()

# The installed package works for an agent: find_package and pkg-config. (Not in the
# sanitizer build: the consumer would link an instrumented library without the runtime.)
if(NOT AGENTUTIL_SANITIZE)
  add_test(NAME install.find_package_and_pkg_config
    COMMAND ${PROJECT_SOURCE_DIR}/tests/install/check-install ${PROJECT_BINARY_DIR})
  set_tests_properties(install.find_package_and_pkg_config PROPERTIES LABELS unit)
endif()

# libFuzzer targets: every tests/fuzz/<name>_fuzz.cpp becomes fuzz_<name>.
file(GLOB fuzzers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/fuzz/*_fuzz.cpp)
foreach(f IN LISTS fuzzers)
  get_filename_component(n ${f} NAME_WE)
  string(REGEX REPLACE "_fuzz$" "" n ${n})
  add_executable(fuzz_${n} ${f})
  target_link_libraries(fuzz_${n} PRIVATE agentutil_static)
  target_link_options(fuzz_${n} PRIVATE -fsanitize=fuzzer)
endforeach()

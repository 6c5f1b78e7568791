# Functions for the targets of this project. None changes global settings, so that a project that adds ours keeps its
# own.

function(pelcloud_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wunused-const-variable
    $<$<BOOL:${PELCLOUD_WERROR}>:-Werror>)
  if(PELCLOUD_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${PELCLOUD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${PELCLOUD_SANITIZE})
  endif()
endfunction()

# pelcloud_add_test(NAME SOURCES... [LIBRARIES lib...] [PREFIX text] [PROPERTIES name value...]): a GoogleTest program
# whose cases are separate tests of ctest, with the prefix before their names. ctest starts tests with a high COST
# first. The secrets in tests contain the word s3cr3t, and a test whose output contains it fails.
function(pelcloud_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PREFIX" "SOURCES;LIBRARIES;PROPERTIES")
  add_executable(${name} ${arg_SOURCES})
  pelcloud_configure_target(${name})
  target_link_libraries(${name} PRIVATE pelcloud_core GTest::gtest_main ${arg_LIBRARIES})
  target_compile_definitions(${name} PRIVATE PELCLOUD_GOLDEN_DIR="${PROJECT_SOURCE_DIR}/tests/golden")
  set(prefix)
  if(arg_PREFIX)
    set(prefix TEST_PREFIX ${arg_PREFIX})
  endif()
  # Without the option, AddressSanitizer's marks on the stack of a killed thread remain and cause false reports.
  gtest_discover_tests(${name} ${prefix} DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES PROPERTIES
    TIMEOUT 300
    FAIL_REGULAR_EXPRESSION "s3cr3t"
    ENVIRONMENT ASAN_OPTIONS=detect_stack_use_after_return=1
    ${arg_PROPERTIES})
  foreach(source IN LISTS arg_SOURCES)
    cmake_path(ABSOLUTE_PATH source)
    set_property(GLOBAL APPEND PROPERTY PELCLOUD_TEST_SOURCES "${source}")
  endforeach()
endfunction()

# pelcloud_add_script_test(NAME SCRIPT [arg...]): a test in Python; exit status 77 means skipped.
function(pelcloud_add_script_test name script)
  cmake_path(ABSOLUTE_PATH script)
  set_property(GLOBAL APPEND PROPERTY PELCLOUD_TEST_SOURCES "${script}")
  # Only the system's interpreter finds the system's packages.
  add_test(NAME ${name} COMMAND /usr/bin/python3 ${script} ${ARGN})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT 300
    COST 40
    SKIP_RETURN_CODE 77
    FAIL_REGULAR_EXPRESSION "s3cr3t")
endfunction()

# Excludes a test source from this build.
function(pelcloud_leave_out source)
  cmake_path(ABSOLUTE_PATH source)
  set_property(GLOBAL APPEND PROPERTY PELCLOUD_TEST_SOURCES "${source}")
endfunction()

# Fails unless each *_test.cpp and *_test.py below tests/ was added or excluded above.
function(pelcloud_require_all_tests_registered)
  file(GLOB_RECURSE on_disk CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/tests/*_test.cpp" "${PROJECT_SOURCE_DIR}/tests/*_test.py")
  get_property(registered GLOBAL PROPERTY PELCLOUD_TEST_SOURCES)
  list(REMOVE_ITEM on_disk ${registered})
  if(on_disk)
    message(FATAL_ERROR "Tests that are not registered: ${on_disk}")
  endif()
endfunction()

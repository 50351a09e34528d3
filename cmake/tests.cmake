# Test programs; see the list of folders in host/cpp/tests.
include(GoogleTest)

# At most so many sources of tests are compiled as one. More at a time take less in all, but more memory: with
# sanitizers 35 MiB each.
set(orvo_tests_at_a_time 80)

# A generated source that holds `sources`; see join_sources.cmake.
function(orvo_join_sources file sources)
  add_custom_command(OUTPUT "${file}"
    COMMAND "${CMAKE_COMMAND}" "-DJOINED=${file}" "-DSOURCES=${sources}" ${ARGN}
      -P "${PROJECT_SOURCE_DIR}/cmake/join_sources.cmake"
    DEPENDS ${sources} "${PROJECT_SOURCE_DIR}/cmake/join_sources.cmake"
    COMMENT "Joining sources" VERBATIM)
endfunction()

# orvo_add_tests(<folder> [LIBRARIES <target>...] [SHARES_PRODUCT_ROOT] [NOT_UNDER_VALGRIND] [LONG <name>...])
#
# <folder>_tests is one program of all <name>_test.cpp of a folder, each of whose cases is a CTest entry; with sanitizers,
# which take a tenth of a second to start, each quarter of its cases. Its sources are compiled several at a time.
# <folder>_<name>_test, which is built only when it is asked for, is the program of one file: ninja <folder>_<name>_test
# takes seconds. Cases that share the product root on disk run one after the other.
# LONG are those whose cases take longer without optimisation than it takes to compile: ORVO_TEST_OPTIONS are not theirs.
function(orvo_add_tests folder)
  cmake_parse_arguments(PARSE_ARGV 1 tests "SHARES_PRODUCT_ROOT;NOT_UNDER_VALGRIND" "" "LIBRARIES;LONG")
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp")
  list(TRANSFORM tests_LONG REPLACE "(.+)" "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/\\1_test.cpp")
  foreach(source IN LISTS tests_LONG)
    if(NOT source IN_LIST sources)
      message(FATAL_ERROR "LONG names ${source}, which is not there")
    endif()
  endforeach()
  set(properties LABELS ${folder})
  set(lock none)
  if(tests_SHARES_PRODUCT_ROOT)
    set(lock product_root)
    list(APPEND properties RESOURCE_LOCK ${lock} COST 100)  # the longest queue starts first
  endif()

  orvo_add_test_program(${folder}_tests ${folder} ${sources})
  if(orvo_sanitized)
    foreach(quarter RANGE 3)
      add_test(NAME ${folder}_${quarter} COMMAND ${folder}_tests)
      set_tests_properties(${folder}_${quarter} PROPERTIES ${properties}
        ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${quarter}")
    endforeach()
  else()
    gtest_discover_tests(${folder}_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
      TEST_PREFIX "${folder}." PROPERTIES ${properties})
  endif()
  if(NOT tests_NOT_UNDER_VALGRIND)
    set_property(GLOBAL APPEND_STRING PROPERTY orvo_under_valgrind "$<TARGET_FILE:${folder}_tests> ${lock}\n")
  endif()
  foreach(source IN LISTS sources)
    cmake_path(GET source STEM stem)
    orvo_add_test_program(${folder}_${stem} ${folder} "${source}")
    set_target_properties(${folder}_${stem} PROPERTIES EXCLUDE_FROM_ALL ON)
  endforeach()
endfunction()

# A program of tests of `folder` and orvo_add_tests' arguments. What runs LONG is an object library, which is linked
# first: of a function that both parts have, the linker takes the optimised one.
function(orvo_add_test_program name folder)
  set(long)
  set(other)
  foreach(source IN LISTS ARGN)
    if(source IN_LIST tests_LONG)
      list(APPEND long "${source}")
    else()
      list(APPEND other "${source}")
    endif()
  endforeach()
  add_executable(${name})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/test_bin")
  if(long AND other)
    add_library(${name}_long OBJECT)
    orvo_add_test_sources(${name}_long ${folder}_long orvo_long_test_headers ${long})
    target_link_libraries(${name} PRIVATE ${name}_long)
  elseif(long)
    orvo_add_test_sources(${name} ${folder}_long orvo_long_test_headers ${long})
  endif()
  if(other)
    orvo_add_test_sources(${name} ${folder} orvo_test_headers ${other})
  endif()
  if(tests_SHARES_PRODUCT_ROOT)
    get_property(programs GLOBAL PROPERTY orvo_programs)
    list(REMOVE_ITEM programs vq_verify_stream_file_xcorr)
    add_dependencies(${name} verify_under_test ${programs})
  endif()
endfunction()

# Compiles sources, joined under `joined_name` if there are several, as what `headers` are compiled for.
function(orvo_add_test_sources target joined_name headers)
  set(sources ${ARGN})
  list(LENGTH sources count)
  if(count GREATER 1)
    orvo_join_tests(sources ${joined_name} ${sources})
  endif()
  target_sources(${target} PRIVATE ${sources})
  target_link_libraries(${target} PRIVATE orvo_test_settings ${tests_LIBRARIES})
  target_compile_options(${target} PRIVATE $<TARGET_PROPERTY:${headers},COMPILE_OPTIONS>)
  target_precompile_headers(${target} REUSE_FROM ${headers})
endfunction()

# Sets `result` to generated sources, each of which holds some of the given ones. A source that has macros of its own stays
# by itself: it would change those after it.
function(orvo_join_tests result folder)
  set(joined)
  set(batch)
  set(alone)
  foreach(source IN LISTS ARGN)
    file(STRINGS "${source}" macros REGEX "^#(define|undef) ")
    if(macros)
      list(APPEND alone "${source}")
    else()
      list(APPEND batch "${source}")
    endif()
  endforeach()
  list(LENGTH batch count)
  math(EXPR batches "(${count} + ${orvo_tests_at_a_time} - 1) / ${orvo_tests_at_a_time}")
  while(batch)
    list(LENGTH batch count)
    list(LENGTH joined number)
    math(EXPR size "${count} / (${batches} - ${number})")  # those that are left share what is left
    list(SUBLIST batch 0 ${size} sources)
    list(REMOVE_ITEM batch ${sources})
    set(file "${CMAKE_CURRENT_BINARY_DIR}/joined/${folder}_${number}.cpp")
    orvo_join_sources("${file}" "${sources}")
    list(APPEND joined "${file}")
  endwhile()
  set(${result} ${joined} ${alone} PARENT_SCOPE)
endfunction()

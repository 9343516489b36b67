# How targets are made here.
#
#   corvane_add_box(<name> OUTPUT <file name> SOURCES ... [BOXES ...] [HIDDEN_BOXES ...] [LIBRARIES ...])
#       One box (layer) of the system: <name>_objects is the object library, <name> the shared object made of it.
#       BOXES are the boxes below it, HIDDEN_BOXES those that its headers do not name, LIBRARIES the third-party
#       libraries whose headers stay inside it.
#   corvane_add_test(<name> SOURCES ... BOXES ... [LIBRARIES ...])
#       A GoogleTest program over the object libraries of BOXES, so that it can reach what the shared objects hide.
#       All boxes that it needs, also indirectly, must be named: objects do not pull in other objects.
#   corvane_add_header_check(<name>)
#       Compiles every public header alone, twice in a row, as C++17 and as C++20. A header that leans on another one,
#       lacks its guard or is C++20 only stops the build.

add_library(corvane_warnings INTERFACE)
target_compile_options(corvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough -Wundef
  $<$<BOOL:${CORVANE_WERROR}>:-Werror>)

add_library(corvane_options INTERFACE)
target_compile_features(corvane_options INTERFACE cxx_std_20)
target_link_libraries(corvane_options INTERFACE corvane_warnings)

function(corvane_add_box box)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT" "SOURCES;BOXES;HIDDEN_BOXES;LIBRARIES")
  add_library(${box}_objects OBJECT ${arg_SOURCES})
  target_include_directories(${box}_objects
    PUBLIC ${PROJECT_SOURCE_DIR}/include
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${box}_objects PUBLIC Threads::Threads
                        PRIVATE $<BUILD_INTERFACE:corvane_options> ${arg_LIBRARIES})
  set_target_properties(${box}_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)

  add_library(${box} SHARED $<TARGET_OBJECTS:${box}_objects>)
  target_include_directories(${box} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  target_compile_features(${box} PUBLIC cxx_std_17)
  target_link_libraries(${box} PUBLIC ${arg_BOXES} Threads::Threads
                        PRIVATE ${arg_HIDDEN_BOXES} ${arg_LIBRARIES})
  target_link_options(${box} PRIVATE $<$<NOT:$<BOOL:${CORVANE_LIBFUZZER}>>:-Wl,--no-undefined>
                      -Wl,--as-needed)
  set_target_properties(${box} PROPERTIES
    OUTPUT_NAME ${arg_OUTPUT}
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()

function(corvane_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;BOXES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  foreach(box IN LISTS arg_BOXES)
    target_link_libraries(${name} PRIVATE ${box}_objects)
  endforeach()
  target_link_libraries(${name} PRIVATE corvane_options GTest::gtest GTest::gmock GTest::gtest_main ${arg_LIBRARIES})
  # googletest's macros trip over these; the code under test is still built with them.
  target_compile_options(${name} PRIVATE -Wno-null-dereference)
  # Test sources are compiled as often as they are run: unoptimised they take half as long.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0>)
  target_compile_definitions(${name} PRIVATE
    CORVANE_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data")
  set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()

function(corvane_add_header_check name)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/include/*.h)
  set(sources)
  foreach(header IN LISTS headers)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}/${header}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@header@\"\n#include \"@header@\"\n" @ONLY)
    list(APPEND sources ${source})
  endforeach()
  foreach(standard IN ITEMS 17 20)
    add_library(${name}-${standard} OBJECT ${sources})
    target_include_directories(${name}-${standard} PRIVATE ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(${name}-${standard} PRIVATE corvane_warnings)
    target_compile_options(${name}-${standard} PRIVATE -Werror)
    set_target_properties(${name}-${standard} PROPERTIES
      CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF)
  endforeach()
endfunction()

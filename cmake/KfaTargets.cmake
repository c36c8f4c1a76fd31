# SPDX-License-Identifier: Apache-2.0
# Functions that add a library, a program or a test in one line each.

include(GNUInstallDirs)

# What is built stands as it will when it is installed, so that it finds its data the same way: nothing that is installed
# knows a path of the build. Only what stands in the build tree has a search path for libraries.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_BINDIR})

set(KFA_EXPORTS ${PROJECT_BINARY_DIR}/exports.map)
configure_file(cmake/exports.map.in ${KFA_EXPORTS} @ONLY)

# kf_library(NAME SOURCES f.cpp... HEADERS f.h... [DEPS PUBLIC-targets...] [PRIVATE targets...] [EXPORT set])
# A shared library named NAME whose headers are installed as <NAME/...> and whose target is in the export set, kfaTargets
# unless another is named. Only the KFL and KFA namespaces are
# exported, undefined symbols are refused, and nothing in it keeps dlclose from unloading it.
function(kf_library NAME)
  cmake_parse_arguments(ARG "" "EXPORT" "SOURCES;HEADERS;DEPS;PRIVATE" ${ARGN})
  if(NOT ARG_EXPORT)
    set(ARG_EXPORT kfaTargets)
  endif()
  add_library(${NAME} SHARED ${ARG_SOURCES} ${ARG_HEADERS})
  add_library(kfa::${NAME} ALIAS ${NAME})
  set_target_properties(${NAME} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR PARENT_PATH INCLUDE_DIR)
  target_include_directories(${NAME} PUBLIC $<BUILD_INTERFACE:${INCLUDE_DIR}>
                                            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${NAME} PUBLIC cxx_std_20)
  target_link_libraries(${NAME} PUBLIC ${ARG_DEPS} PRIVATE kf_options ${ARG_PRIVATE})
  kf_shape_library(${NAME})
  install(TARGETS ${NAME} EXPORT ${ARG_EXPORT}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  foreach(HEADER ${ARG_HEADERS})
    get_filename_component(FOLDER ${HEADER} DIRECTORY)
    install(FILES ${HEADER} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${NAME}/${FOLDER} COMPONENT development)
  endforeach()
  set_property(GLOBAL APPEND PROPERTY KFA_LIBRARIES ${NAME})
  set_property(GLOBAL APPEND PROPERTY KFA_PRIVATE_LIBRARIES ${ARG_PRIVATE})
  kf_check_headers(${NAME} ${ARG_HEADERS})
endfunction()

# What a library exports and how its own calls are bound. A call to a function of the same library goes straight there;
# the data of inline functions stays one in the process.
function(kf_shape_library NAME)
  # What is inline in a header is compiled into each library that uses it, so none needs to export it.
  target_compile_options(${NAME} PRIVATE -fvisibility-inlines-hidden
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique -fno-semantic-interposition>)
  target_link_options(${NAME} PRIVATE -Wl,--version-script=${KFA_EXPORTS}
                                      -Wl,-Bsymbolic-functions)
  if(NOT KFA_ALLOW_UNDEFINED)
    target_link_options(${NAME} PRIVATE -Wl,--no-undefined)
  endif()
  set_property(TARGET ${NAME} APPEND PROPERTY LINK_DEPENDS ${KFA_EXPORTS})
endfunction()

# One generated source per public header proves that each header can be read alone.
function(kf_check_headers NAME)
  if(NOT BUILD_TESTING OR KFA_COVERAGE)
    return()
  endif()
  set(SOURCES)
  foreach(HEADER ${ARGN})
    string(MAKE_C_IDENTIFIER "${HEADER}" ID)
    set(SOURCE ${CMAKE_CURRENT_BINARY_DIR}/headers/${ID}.cpp)
    file(GENERATE OUTPUT ${SOURCE} CONTENT "#include <${NAME}/${HEADER}>\n")
    list(APPEND SOURCES ${SOURCE})
  endforeach()
  add_library(${NAME}_headers OBJECT ${SOURCES})
  target_link_libraries(${NAME}_headers PRIVATE kf_options ${NAME})
endfunction()

# kf_test(NAME [SOURCES pattern...] [DEPS targets...] [ENVIRONMENT NAME=VALUE]): a GoogleTest program registered with CTest.
# Its sources are the files that the patterns stand for, or else every .cpp of the folder.
function(kf_test NAME)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;ENVIRONMENT" ${ARGN})
  if(NOT ARG_SOURCES)
    set(ARG_SOURCES *.cpp)
  endif()
  file(GLOB SOURCES CONFIGURE_DEPENDS ${ARG_SOURCES})
  add_executable(${NAME} ${SOURCES})
  target_link_libraries(${NAME} PRIVATE kf_options ${ARG_DEPS} GTest::gmock GTest::gtest_main)
  target_compile_definitions(${NAME} PRIVATE KFA_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                                             KFA_BINARY_DIR="${PROJECT_BINARY_DIR}")
  set(PROPERTIES TIMEOUT 300)
  if(ARG_ENVIRONMENT)
    list(APPEND PROPERTIES ENVIRONMENT ${ARG_ENVIRONMENT})
  endif()
  gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST PROPERTIES ${PROPERTIES})
endfunction()

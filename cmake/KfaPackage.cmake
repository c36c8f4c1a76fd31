# SPDX-License-Identifier: Apache-2.0
# What is installed beside the libraries and the program: the CMake package "kfa", one pkg-config file for each library,
# the documents and the examples. The data folder installs itself. Components: runtime, development, tools, agent, data,
# documents, examples, python.

include(CMakePackageConfigHelpers)

set(KFA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kfa)
set(KFA_INSTALLED_DATA_DIR ${CMAKE_INSTALL_DATADIR}/kfa)
configure_package_config_file(packaging/kfaConfig.cmake.in ${PROJECT_BINARY_DIR}/package/kfaConfig.cmake
  INSTALL_DESTINATION ${KFA_CMAKE_DIR} PATH_VARS KFA_INSTALLED_DATA_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/kfaConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/kfaConfig.cmake ${PROJECT_BINARY_DIR}/package/kfaConfigVersion.cmake
        DESTINATION ${KFA_CMAKE_DIR} COMPONENT development)
install(EXPORT kfaTargets NAMESPACE kfa:: DESTINATION ${KFA_CMAKE_DIR} COMPONENT development)
if(KFA_REMOTE)
  # A file of its own, so that the package is whole without that library.
  install(EXPORT kfaRemoteTargets NAMESPACE kfa:: DESTINATION ${KFA_CMAKE_DIR} COMPONENT development)
endif()

# The prefix stands in the files as it is, so that pkg-config knows a system's include folder and leaves it out;
# pkg-config --define-prefix serves an installation that was moved.
get_property(KFA_LIBRARIES GLOBAL PROPERTY KFA_LIBRARIES)
foreach(KFA_PC_NAME ${KFA_LIBRARIES})
  get_target_property(KFA_PC_REQUIRES ${KFA_PC_NAME} INTERFACE_LINK_LIBRARIES)
  list(FILTER KFA_PC_REQUIRES INCLUDE REGEX "^(KFL|KFA)")
  list(JOIN KFA_PC_REQUIRES " " KFA_PC_REQUIRES)
  configure_file(packaging/library.pc.in ${PROJECT_BINARY_DIR}/package/${KFA_PC_NAME}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${KFA_PC_NAME}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endforeach()

# The documents keep the places that they have to each other, so that their links hold.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT examples
        REGEX "/examples/CMakeLists.txt$" EXCLUDE)

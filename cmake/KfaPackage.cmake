# SPDX-License-Identifier: Apache-2.0
# What is installed beside the libraries and the program: the CMake package "kfa", one pkg-config file for each library,
# and the documents. The data folder installs itself.

include(CMakePackageConfigHelpers)

set(KFA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kfa)
set(KFA_INSTALLED_DATA_DIR ${CMAKE_INSTALL_DATADIR}/kfa)
configure_package_config_file(packaging/kfaConfig.cmake.in ${PROJECT_BINARY_DIR}/package/kfaConfig.cmake
  INSTALL_DESTINATION ${KFA_CMAKE_DIR} PATH_VARS KFA_INSTALLED_DATA_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/kfaConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/kfaConfig.cmake ${PROJECT_BINARY_DIR}/package/kfaConfigVersion.cmake
        DESTINATION ${KFA_CMAKE_DIR})
install(EXPORT kfaTargets NAMESPACE kfa:: DESTINATION ${KFA_CMAKE_DIR})

set(KFA_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KFA_PREFIX_FROM_PC ${CMAKE_INSTALL_PREFIX}/${KFA_PC_DIR} ${CMAKE_INSTALL_PREFIX}/.)
get_property(KFA_LIBRARIES GLOBAL PROPERTY KFA_LIBRARIES)
foreach(KFA_PC_NAME ${KFA_LIBRARIES})
  get_target_property(KFA_PC_REQUIRES ${KFA_PC_NAME} INTERFACE_LINK_LIBRARIES)
  list(FILTER KFA_PC_REQUIRES INCLUDE REGEX "^(KFL|KFA)")
  list(JOIN KFA_PC_REQUIRES " " KFA_PC_REQUIRES)
  configure_file(packaging/library.pc.in ${PROJECT_BINARY_DIR}/package/${KFA_PC_NAME}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${KFA_PC_NAME}.pc DESTINATION ${KFA_PC_DIR})
endforeach()

install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")

# `cmake --install` lays out the library for a host build: headers, the library with a CMake
# package (find_package(vxcloud)), the resource bundle where the library looks for it, and the
# vxcloud and vxcloud-sandbox programs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vxcloud EXPORT vxcloudTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vxcloud DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/VXCloud.bundle
        DESTINATION ${CMAKE_INSTALL_DATADIR}/vxcloud)
foreach(program vxcloud-cli vxcloud-sandbox)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

set(VXCLOUD_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vxcloud)
install(EXPORT vxcloudTargets NAMESPACE vxcloud:: DESTINATION ${VXCLOUD_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vxcloudConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vxcloudConfig.cmake INSTALL_DESTINATION ${VXCLOUD_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vxcloudConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vxcloudConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/vxcloudConfigVersion.cmake
        DESTINATION ${VXCLOUD_CMAKE_DIR})

# vxcloud's completions and manual page (generated in cli/), where bash-completion, zsh and
# man find them under the prefix.
if(TARGET vxcloud-shell-files)
  install(FILES ${VXCLOUD_SHELL_FILES_DIR}/vxcloud.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME vxcloud)
  install(FILES ${VXCLOUD_SHELL_FILES_DIR}/_vxcloud DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${VXCLOUD_SHELL_FILES_DIR}/vxcloud.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

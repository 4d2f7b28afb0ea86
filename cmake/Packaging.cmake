# Installation, the CMake package, pkg-config files, the manual page, bash completion and the
# Debian packages.
include(CMakePackageConfigHelpers)

# Installed programs and libraries find the project's libraries beside them and Debian's
# liblog in its private folder.
get_filename_component(MIVO_LIBLOG_DIR ${ANDROID_LOG_LIBRARY} DIRECTORY)
file(RELATIVE_PATH MIVO_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(mivo mivo_vexa zocabase PROPERTIES INSTALL_RPATH "\$ORIGIN;${MIVO_LIBLOG_DIR}")
set_target_properties(vexa PROPERTIES INSTALL_RPATH "\$ORIGIN/${MIVO_BIN_TO_LIB};${MIVO_LIBLOG_DIR}")

set(MIVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/mivo_vexa)
install(EXPORT mivo_vexaTargets NAMESPACE mivo:: DESTINATION ${MIVO_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/mivo_vexaConfig.cmake.in
  ${CMAKE_BINARY_DIR}/mivo_vexaConfig.cmake INSTALL_DESTINATION ${MIVO_CMAKE_DIR})
# 0.x: a different minor version is a different ABI.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/mivo_vexaConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/mivo_vexaConfig.cmake ${CMAKE_BINARY_DIR}/mivo_vexaConfigVersion.cmake
  DESTINATION ${MIVO_CMAKE_DIR} COMPONENT development)

# Relocatable: the prefix is found from the .pc file's own place.
file(RELATIVE_PATH MIVO_PC_UP ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" MIVO_PC_UP "${MIVO_PC_UP}")
set(MIVO_PC_PREFIX "\${pcfiledir}/${MIVO_PC_UP}")
foreach(pc mivo mivo_vexa zocabase)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${CMAKE_BINARY_DIR}/pkgconfig/${pc}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/pkgconfig/${pc}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# The manual page comes from the command's own help, so it follows its options.
find_program(HELP2MAN help2man)
if(HELP2MAN)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/man/vexa.1
    COMMAND ${CMAKE_COMMAND} -DVEXA=$<TARGET_FILE:vexa> -DHELP2MAN=${HELP2MAN}
            -DVERSION=${PROJECT_VERSION} -DOUTPUT=${CMAKE_BINARY_DIR}/man/vexa.1
            -P ${CMAKE_CURRENT_LIST_DIR}/ManPage.cmake
    DEPENDS vexa ${CMAKE_CURRENT_LIST_DIR}/ManPage.cmake
    COMMENT "Generating the vexa manual page")
  add_custom_target(vexa_man ALL DEPENDS ${CMAKE_BINARY_DIR}/man/vexa.1)
  install(FILES ${CMAKE_BINARY_DIR}/man/vexa.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT runtime)
else()
  message(WARNING "help2man not found: no manual page (scripts/install-deps.sh installs it)")
endif()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/vexa.bash-completion
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vexa COMPONENT runtime)

# cpack -G DEB: mivo-vexa (the libraries and the command) and mivo-vexa-dev (headers, the
# CMake package, pkg-config files). Dependencies on Debian's packages come from what the
# binaries link (dpkg-shlibdeps).
set(CPACK_PACKAGE_NAME mivo-vexa)
set(CPACK_PACKAGE_VENDOR "mivo vexa")
set(CPACK_PACKAGE_CONTACT "mivo vexa developers <mivo-vexa@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "image-processing plugin of the mivo media framework")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME mivo-vexa)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "image-processing plugin of the mivo media framework
 libmivo_vexa.plugin.so with the framework pieces it links (libmivo.so), the open image
 library libzocabase.so and the vexa command, which runs every operation on picture files.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME mivo-vexa-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of the mivo vexa plugin
 Headers, the CMake package mivo_vexa and pkg-config files for libmivo, the plugin and
 libzocabase.")
# The headers include Android's log and graphics headers.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "mivo-vexa (= ${PROJECT_VERSION}), android-liblog-dev, android-platform-system-core-headers")
include(CPack)

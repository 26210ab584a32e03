# What is installed where, as Debian and the GNU directories have it. A host that has the real kernel needs the
# component "runtime" alone; "kernel" is the stand-in, which kfax needs and which lets everything else run where
# there is no host.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Found from wherever the tree is installed or moved. A package for the system's own directories has none of it:
# -DCMAKE_SKIP_INSTALL_RPATH=ON.
file(RELATIVE_PATH kffax_bin_to_lib
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(kffax PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS kffax EXPORT kffax
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
if(NOT KFFAX_KERNEL_LIBRARY)
  install(TARGETS ktkrn EXPORT kffax
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT kernel NAMELINK_COMPONENT development)
endif()

# One directory to include from: the headers name each other by their places in the tree.
set(kffax_include ${CMAKE_INSTALL_INCLUDEDIR}/kffax)
target_include_directories(kffax INTERFACE $<INSTALL_INTERFACE:${kffax_include}>)
target_compile_features(kffax INTERFACE cxx_std_20)
install(FILES host/kernel.h host/records.h host/status.h
  DESTINATION ${kffax_include}/host COMPONENT development)
install(FILES API/Filters/Fax/Fax.h
  DESTINATION ${kffax_include}/API/Filters/Fax COMPONENT development)
install(FILES API/Filters/Fax/Common/Tif_faxx.h
  DESTINATION ${kffax_include}/API/Filters/Fax/Common COMPONENT development)

set(kffax_cmake ${CMAKE_INSTALL_LIBDIR}/cmake/kffax)
install(EXPORT kffax NAMESPACE kffax:: FILE kffaxConfig.cmake
  DESTINATION ${kffax_cmake} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kffaxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kffaxConfigVersion.cmake
  DESTINATION ${kffax_cmake} COMPONENT development)

set(kffax_pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH kffax_pkgconfig_to_prefix ${CMAKE_INSTALL_PREFIX}/${kffax_pkgconfig} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" kffax_pkgconfig_to_prefix "${kffax_pkgconfig_to_prefix}")
configure_file(cmake/kffax.pc.in ${PROJECT_BINARY_DIR}/kffax.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kffax.pc DESTINATION ${kffax_pkgconfig} COMPONENT development)

if(TARGET kfax)
  set_target_properties(kfax PROPERTIES INSTALL_RPATH "$ORIGIN/${kffax_bin_to_lib}")
  install(TARGETS kfax RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES tools/kfax/kfax.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES tools/kfax/completions/kfax.bash RENAME kfax
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
  install(FILES tools/kfax/completions/_kfax
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tool)
  install(FILES tools/kfax/completions/kfax.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tool)
endif()

if(NOT KFFAX_KERNEL_LIBRARY)
  include(cmake/package.cmake)
endif()

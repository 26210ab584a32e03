# Debian packages, one for each component of install.cmake: cpack -G DEB in a tree configured as scripts/package
# does it. They have no maintainer scripts; a trigger keeps the linker's cache.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kffax)
set(CPACK_PACKAGE_CONTACT "kffax maintainers <maintainers@kffax.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime kernel development tool)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/documents.cmake)
set(CPACK_KFFAX_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kffax)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Of this very tree: no package that is installed can tell where the kernel comes from.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# cpack writes a postinst and a postrm that call ldconfig, as the trigger does already, unless files of these
# names are listed; one that is not there is left out.
set(kffax_ldconfig ${PROJECT_SOURCE_DIR}/packaging/triggers;none/postinst;none/postrm)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkffax19)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Any kernel will do: another one's package says that it provides libktkrn19.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS libktkrn19)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${kffax_ldconfig})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "filter for images in the fax codes of ITU-T T.4 and T.6
Through this filter an imaging kernel describes, loads and saves
black-and-white images in the codes of Group 3 (one- and two-dimensional) and
Group 4: raw streams in either bit order, files with a header, and the strips
and tiles of containers.")

set(CPACK_DEBIAN_KERNEL_PACKAGE_NAME libktkrn19)
set(CPACK_DEBIAN_KERNEL_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_KERNEL_PACKAGE_CONTROL_EXTRA ${kffax_ldconfig})
set(CPACK_DEBIAN_KERNEL_DESCRIPTION "small imaging kernel for the kffax filter
The files, memory and bitmaps that the filter libkffax19 asks an imaging
kernel for, enough to run it where there is no such host. It stands in for a
host's own kernel, whose package takes this one's place by providing
libktkrn19.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkffax-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libkffax19 (= ${PROJECT_VERSION}), libktkrn19 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "filter for images in fax codes - development files
Headers, and what CMake and pkg-config need to find them, for programs and
container filters that use the kffax filter.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kfax)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
# Loaded when it runs, so nothing that it is linked with tells of it. The kernel has to be the one it knows.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS
  "libkffax19 (>= ${PROJECT_VERSION}), libktkrn19 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "describe, check and convert fax files
kfax tells what a fax file is and where it is damaged, makes pictures (PNG,
PBM) and TIFF files of it, and fax files of pictures, one or a million, on all
processors. It reads and writes raw Group 3 and Group 4 streams and
black-and-white TIFF files.")

include(CPack)

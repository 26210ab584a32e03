# Run by cpack before it packs: the documents that every Debian package has, and compressed ones where Debian has
# them so.
file(GLOB staged LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(directory IN LISTS staged)
  get_filename_component(component ${directory} NAME)
  string(TOUPPER ${component} component)
  set(documents ${directory}/usr/share/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  file(MAKE_DIRECTORY ${documents})
  file(COPY_FILE ${CPACK_KFFAX_PACKAGING}/copyright ${documents}/copyright)
  file(COPY_FILE ${CPACK_KFFAX_PACKAGING}/changelog ${documents}/changelog)
  file(GLOB manuals ${directory}/usr/share/man/man*/*)
  execute_process(COMMAND gzip -9n ${documents}/changelog ${manuals} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

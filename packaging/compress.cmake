# Compresses what Debian wants compressed, in the trees that CPack made of the components.
file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*.[1-9]
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog)
foreach(file IN LISTS files)
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

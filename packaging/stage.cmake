# Run by CPack when the files of the package are in place, before it is made: what only the
# package has, and what Debian wants compressed.
get_filename_component(packaging ${CMAKE_CURRENT_LIST_DIR} ABSOLUTE)
set(root ${CPACK_TEMPORARY_DIRECTORY})
set(docs ${root}/usr/share/doc/pvbconditioner)

function(put name directory)
  file(COPY ${packaging}/${name} DESTINATION ${directory}
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()
put(copyright ${docs})
put(changelog ${docs})
put(pvbconditioner.sh ${root}/etc/profile.d)

file(GLOB compressed ${root}/usr/share/man/man?/* ${docs}/changelog)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)

# cpack runs this on the files that it is about to pack. It has created their directories with the umask of the user; the
# package must not depend on that.
set(everybody OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY} DIRECTORY_PERMISSIONS ${everybody})
file(CHMOD ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/opt/Veridane_NVMe/log
  PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)

# Read by cpack for each kind of package: adds what only that kind holds.
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${build} vdRescan_plus ${CPACK_GENERATOR} /)

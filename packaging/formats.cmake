# cpack reads this for each kind of package. It adds the files that only this kind has.
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${build} vdRescan_plus ${CPACK_GENERATOR} /)

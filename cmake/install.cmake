# What is installed: the programs with their configuration (packaging), and what feature modules and
# parser plug-ins are built against.

install(TARGETS ucfgd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
add_subdirectory(packaging)

set(headers ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY libllconf/include/llconf libfe/include/fe DESTINATION ${headers})
install(DIRECTORY libmisc/include/ucfgd DESTINATION ${headers} PATTERN owners.h EXCLUDE
  PATTERN nearest.h EXCLUDE PATTERN simple_format.h EXCLUDE)
install(FILES src/daemon/loop.h src/daemon/trace.h src/daemon/dirs.h
  DESTINATION ${headers}/ucfgd/daemon)
install(FILES src/tree/trns.h src/tree/types.h src/tree/ccdtree.h src/tree/param_error.h
  src/tree/param_path.h src/tree/param_ops.h DESTINATION ${headers}/ucfgd/tree)
install(FILES src/backend/llconf_item.h src/backend/contexts.h src/backend/registry.h
  src/backend/file_io.h src/backend/ll_trns.h DESTINATION ${headers}/ucfgd/backend)
install(FILES src/session/bgexec.h src/session/session.h DESTINATION ${headers}/ucfgd/session)

foreach(package ucfgd llconf fe)
  configure_file(cmake/${package}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

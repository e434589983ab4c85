# Installs cmake/<name>.pc.in as a pkg-config file that finds library and headers from where it lies
# itself, so that an installed tree can be moved. What was given as an absolute path stays there.
function(korvain_statistic_install_pkgconfig name)
  set(pc_prefix ${CMAKE_INSTALL_PREFIX})
  set(pc_libdir ${CMAKE_INSTALL_LIBDIR})
  if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" up ${up})
    set(pc_prefix "\${pcfiledir}/${up}")
    set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  endif()
  set(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
  if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          ${ARGN})
endfunction()

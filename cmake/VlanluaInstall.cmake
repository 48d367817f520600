# Where `cmake --install` puts things, relative to the prefix, and the run paths that let every
# installed binary find the platform library without LD_LIBRARY_PATH.
#
#   lib/lua/<version>/  libvlanluaext.so, cfgdb.so   (where the stock engines look under /usr/local)
#   lib/                libvlplatform.so, pkgconfig/vlanluaext.pc
#   include/vlanlua/    the platform's and the module's headers
#   bin/                vlanlua
#   share/man/man1/     vlanlua.1
#
# Under luarocks (VLANLUA_ROCKS) the build installs into the rock's own folders, lib/ and bin/,
# which luarocks then copies to <tree>/lib/lua/<version> and <tree>/bin; the run paths are worked
# out for that final place. Headers and the pkg-config file stay with the plain install.
option(VLANLUA_ROCKS "Install for luarocks: modules and library in lib/, command in bin/" OFF)

set(VLANLUA_INSTALL_CMODDIR "lib/lua/${VLANLUA_LUA_VERSION}" CACHE STRING "C modules, relative to the prefix")
set(VLANLUA_INSTALL_LIBDIR "lib" CACHE STRING "The platform library, relative to the prefix")
set(VLANLUA_INSTALL_INCLUDEDIR "include/vlanlua" CACHE STRING "Headers, relative to the prefix")
set(VLANLUA_INSTALL_BINDIR "bin" CACHE STRING "The vlanlua command, relative to the prefix")

if(VLANLUA_ROCKS)
  set(cmod_dest lib)
  set(lib_dest lib)
  set(cmod_final "lib/lua/${VLANLUA_LUA_VERSION}")
  set(lib_final ${cmod_final})
else()
  set(cmod_dest ${VLANLUA_INSTALL_CMODDIR})
  set(lib_dest ${VLANLUA_INSTALL_LIBDIR})
  set(cmod_final ${cmod_dest})
  set(lib_final ${lib_dest})
endif()

# "$ORIGIN/<from> -> <to>", both relative to the prefix; "$ORIGIN" when they are the same folder.
function(vlanlua_origin_path out from to)
  file(RELATIVE_PATH rel /p/${from} /p/${to})
  string(REGEX REPLACE "/$" "" rel "${rel}")
  if(rel STREQUAL "")
    set(${out} "$ORIGIN" PARENT_SCOPE)
  else()
    set(${out} "$ORIGIN/${rel}" PARENT_SCOPE)
  endif()
endfunction()

vlanlua_origin_path(cmod_rpath ${cmod_final} ${lib_final})
vlanlua_origin_path(bin_rpath ${VLANLUA_INSTALL_BINDIR} ${lib_final})
# The command finds the modules relative to itself; "<dir>" without $ORIGIN.
file(RELATIVE_PATH VLANLUA_BIN_TO_CMOD /p/${VLANLUA_INSTALL_BINDIR} /p/${cmod_final})

set_target_properties(vlanluaext PROPERTIES INSTALL_RPATH "${cmod_rpath}")
install(TARGETS vlanluaext LIBRARY DESTINATION ${cmod_dest})
if(TARGET cfgdb)
  set_target_properties(cfgdb PROPERTIES INSTALL_RPATH "${cmod_rpath}")
  install(TARGETS cfgdb LIBRARY DESTINATION ${cmod_dest})
endif()
install(TARGETS vlplatform LIBRARY DESTINATION ${lib_dest})
set_target_properties(vlanlua PROPERTIES INSTALL_RPATH "${bin_rpath}")
target_compile_definitions(vlanlua PRIVATE VLANLUA_INSTALL_CMOD_DIR="${VLANLUA_BIN_TO_CMOD}")
install(TARGETS vlanlua RUNTIME DESTINATION ${VLANLUA_INSTALL_BINDIR})

if(NOT VLANLUA_ROCKS)
  file(GLOB vlanlua_headers ${CMAKE_SOURCE_DIR}/platform/include/*.h ${CMAKE_SOURCE_DIR}/include/*.h)
  install(FILES ${vlanlua_headers} DESTINATION ${VLANLUA_INSTALL_INCLUDEDIR})
  file(RELATIVE_PATH pc_prefix_from_pcdir /p/${VLANLUA_INSTALL_LIBDIR}/pkgconfig /p)
  string(REGEX REPLACE "/$" "" pc_prefix_from_pcdir "${pc_prefix_from_pcdir}")
  configure_file(${CMAKE_CURRENT_LIST_DIR}/vlanluaext.pc.in ${CMAKE_BINARY_DIR}/vlanluaext.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/vlanluaext.pc DESTINATION ${VLANLUA_INSTALL_LIBDIR}/pkgconfig)
  install(FILES ${CMAKE_SOURCE_DIR}/vlanlua/vlanlua.1 DESTINATION share/man/man1)
endif()

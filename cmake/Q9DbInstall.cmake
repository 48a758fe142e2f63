# Installation. The library and its filter scripts share a folder of their
# own, <libdir>/q9db, since the library runs the init.lua that stands beside
# its own file; the Lua module name Q9Db.so links to it there. q9db finds
# the library through its run path, clients through the pkg-config file or
# the CMake package.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(Q9DB_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR}/q9db)
set(Q9DB_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Q9Db)

install(TARGETS Q9Db EXPORT Q9DbTargets
  LIBRARY DESTINATION ${Q9DB_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/scripts/ DESTINATION ${Q9DB_INSTALL_LIBDIR})
install(CODE "file(CREATE_LINK $<TARGET_SONAME_FILE_NAME:Q9Db>
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${Q9DB_INSTALL_LIBDIR}/Q9Db.so\" SYMBOLIC)")
file(GLOB Q9DB_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${Q9DB_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Q9Db.h includes its concept headers from the folder beside it.
file(GLOB Q9DB_CONCEPT_HEADERS ${PROJECT_SOURCE_DIR}/include/Q9Db/*.h)
install(FILES ${Q9DB_CONCEPT_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Q9Db)

file(RELATIVE_PATH Q9DB_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${Q9DB_INSTALL_LIBDIR})
set_target_properties(q9db PROPERTIES INSTALL_RPATH "$ORIGIN/${Q9DB_BIN_TO_LIB}")
install(TARGETS q9db RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(EXPORT Q9DbTargets NAMESPACE Q9Db:: DESTINATION ${Q9DB_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/Q9DbConfig.cmake.in
  ${CMAKE_BINARY_DIR}/cmake/Q9DbConfig.cmake INSTALL_DESTINATION ${Q9DB_INSTALL_CMAKEDIR})
# Before 1.0 a minor version may break the interface.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/cmake/Q9DbConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/cmake/Q9DbConfig.cmake ${CMAKE_BINARY_DIR}/cmake/Q9DbConfigVersion.cmake
  DESTINATION ${Q9DB_INSTALL_CMAKEDIR})

file(RELATIVE_PATH Q9DB_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" Q9DB_PC_TO_PREFIX "${Q9DB_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/q9db.pc.in ${CMAKE_BINARY_DIR}/cmake/q9db.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/cmake/q9db.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(Q9DB_BUILD_TESTS)
  # Installs into a scratch prefix and builds the example client against it
  # through pkg-config and through find_package. Instrumented builds pass
  # their flags on, as a client of an instrumented library needs them.
  set(Q9DB_CLIENT_FLAGS "")
  if(Q9DB_SANITIZE)
    set(Q9DB_CLIENT_FLAGS "-fsanitize=address,undefined")
  endif()
  add_test(NAME install_and_find
    COMMAND bash ${PROJECT_SOURCE_DIR}/tests/tool/install_test.sh ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}
            ${CMAKE_C_COMPILER} "${Q9DB_CLIENT_FLAGS}")
endif()

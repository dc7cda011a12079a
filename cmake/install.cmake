# `cmake --install`: the library, its headers, an exported CMake package
# (find_package(TEV) gives the imported target TEV::TEV carrying the include
# directory) and a pkg-config file. Nothing here is host-only, so the
# Android build installs the same way.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Inside the build the headers come from the source tree; installed, from
# the install prefix.
set_property(TARGET TEV PROPERTY INTERFACE_INCLUDE_DIRECTORIES
  "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>"
  "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")

# On the host, liblog lives in a directory of its own; the installed library
# keeps a run path to it so that programs linking it need no extra flags.
if(NOT ANDROID)
  set_property(TARGET TEV PROPERTY INSTALL_RPATH_USE_LINK_PATH ON)
endif()

install(TARGETS TEV EXPORT TEVTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tev DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(TEV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/TEV)
install(EXPORT TEVTargets NAMESPACE TEV:: DESTINATION ${TEV_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TEVConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TEVConfig.cmake INSTALL_DESTINATION ${TEV_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TEVConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TEVConfig.cmake ${PROJECT_BINARY_DIR}/TEVConfigVersion.cmake
  DESTINATION ${TEV_CMAKE_DIR})

# The .pc file finds its prefix from where it lies, so the install tree can
# be moved or installed with --prefix.
get_target_property(TEV_OUTPUT_NAME TEV OUTPUT_NAME)
file(RELATIVE_PATH TEV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/tev.pc.in ${PROJECT_BINARY_DIR}/tev.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tev.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Installs into a scratch prefix and builds the consumer in tests/consumer
# against it, once with find_package and once with pkg-config.
if(TEV_HOST AND BUILD_TESTING AND NOT TEV_TSAN)
  if(TEV_SANITIZE)
    set(TEV_CONSUMER_FLAGS "-fsanitize=address,undefined -fno-sanitize=vptr")
  else()
    set(TEV_CONSUMER_FLAGS "")
  endif()
  add_test(NAME install_package
    COMMAND ${PROJECT_SOURCE_DIR}/tests/consumer/run.sh
            ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/tests/consumer
            ${CMAKE_CXX_COMPILER} "${TEV_CONSUMER_FLAGS}"
            "${CMAKE_TOOLCHAIN_FILE}" ${CMAKE_CROSSCOMPILING_EMULATOR})
endif()

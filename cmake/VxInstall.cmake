# What is installed beside the targets themselves: the platform's CMake package, the libraries that
# set-up built, and the way from an installed binary to both. Included last, when all targets exist.

include(CMakePackageConfigHelpers)

set(vx_private_dir "lib/dhcp-relay-app/deps")
set(vx_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/VxPlatform")

# vx_targets(<directory> <variable>): appends all targets built at or below it.
function(vx_targets dir out)
  get_property(targets DIRECTORY "${dir}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(children DIRECTORY "${dir}" PROPERTY SUBDIRECTORIES)
  set(all ${${out}} ${targets})
  foreach(child IN LISTS children)
    vx_targets("${child}" all)
  endforeach()
  set(${out} ${all} PARENT_SCOPE)
endfunction()

# vx_origin(<from> <to> <variable>): the way between two installed directories, whatever the prefix.
function(vx_origin from to out)
  file(RELATIVE_PATH way "/${from}" "/${to}")
  if(way STREQUAL "")
    set(${out} "$ORIGIN" PARENT_SCOPE)
  else()
    string(REGEX REPLACE "/$" "" way "${way}")
    set(${out} "$ORIGIN/${way}" PARENT_SCOPE)
  endif()
endfunction()

# vx_install_rpaths(): libraries and programs find the platform, and its private libraries, beside
# themselves. A program made against a platform elsewhere keeps that place.
function(vx_install_rpaths)
  vx_targets("${CMAKE_SOURCE_DIR}" targets)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
      set(from "${CMAKE_INSTALL_LIBDIR}")
    elseif(type STREQUAL "EXECUTABLE")
      set(from "${CMAKE_INSTALL_BINDIR}")  # sbin is as far from lib as bin
    else()
      continue()
    endif()
    vx_origin("${from}" "${CMAKE_INSTALL_LIBDIR}" to_platform)
    vx_origin("${from}" "${vx_private_dir}/lib" to_private)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${to_platform};${to_private}")
    if(VX_PLATFORM STREQUAL "system")
      set_target_properties(${target} PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
    endif()
  endforeach()
endfunction()

# vx_install_package(): what find_package(VxPlatform) finds.
function(vx_install_package)
  install(EXPORT VxPlatform NAMESPACE vx:: FILE VxPlatformTargets.cmake
    DESTINATION "${vx_package_dir}")
  configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/VxPlatformConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/VxPlatformConfig.cmake" INSTALL_DESTINATION "${vx_package_dir}"
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
  write_basic_package_version_file("${CMAKE_BINARY_DIR}/VxPlatformConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  install(FILES "${CMAKE_BINARY_DIR}/VxPlatformConfig.cmake"
    "${CMAKE_BINARY_DIR}/VxPlatformConfigVersion.cmake" DESTINATION "${vx_package_dir}")
endfunction()

# vx_install_private_libraries(): sysrepo and libyang with their tools, where the release has no
# packages of them.
function(vx_install_private_libraries)
  file(GLOB libraries "${VX_DEPS_PREFIX}/lib/*.so.*")
  if(libraries)
    install(FILES ${libraries} DESTINATION "${vx_private_dir}/lib")
    foreach(tool sysrepoctl sysrepocfg yanglint)
      install(PROGRAMS "${VX_DEPS_PREFIX}/bin/${tool}" DESTINATION "${vx_private_dir}/bin")
    endforeach()
  endif()
endfunction()

vx_install_rpaths()
if(VX_PLATFORM STREQUAL "bundled")
  vx_install_package()
  vx_install_private_libraries()
endif()

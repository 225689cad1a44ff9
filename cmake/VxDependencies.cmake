# The libraries the bundled platform stands on. Those that this Debian release lacks are in the prefix that
# scripts/setup made.

set(VX_DEPS_PREFIX "${CMAKE_SOURCE_DIR}/.deps/prefix" CACHE PATH "Prefix of the libraries built by scripts/setup")
list(PREPEND CMAKE_PREFIX_PATH "${VX_DEPS_PREFIX}")

find_package(PkgConfig REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${VX_DEPS_PREFIX}/lib/pkgconfig:$ENV{PKG_CONFIG_PATH}")
pkg_check_modules(libyang REQUIRED IMPORTED_TARGET libyang>=3.13)
pkg_check_modules(sysrepo REQUIRED IMPORTED_TARGET sysrepo>=3.7)
pkg_check_modules(libcap-ng REQUIRED IMPORTED_TARGET libcap-ng)
pkg_check_modules(libseccomp REQUIRED IMPORTED_TARGET libseccomp>=2.5)
pkg_check_modules(libnl REQUIRED IMPORTED_TARGET libnl-3.0 libnl-route-3.0)
pkg_check_modules(systemd REQUIRED IMPORTED_TARGET libsystemd)
find_package(Protobuf REQUIRED)
find_package(nlohmann_json REQUIRED)
include("${CMAKE_CURRENT_LIST_DIR}/VxZlog.cmake")

# The peer libraries of the tests and benchmarks, and OpenImageIO for the platform's reference
# media service. OpenImageIO comes through pkg-config: the CMake package Debian ships names
# OpenCV's include folder, which is not installed with it.
find_package(PkgConfig REQUIRED)
if(NOT TARGET PkgConfig::KV_OIIO)
  pkg_check_modules(KV_OIIO REQUIRED IMPORTED_TARGET GLOBAL OpenImageIO)
  add_library(KvPeer::OpenImageIO ALIAS PkgConfig::KV_OIIO)
endif()

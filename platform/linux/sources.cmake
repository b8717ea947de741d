set(quillet_platform_sources
  linux/unload.cpp)

set(quillet_platform_libraries)

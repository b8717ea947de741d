set(quillet_platform_sources
)
set(quillet_platform_libraries)

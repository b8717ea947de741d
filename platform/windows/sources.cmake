set(quillet_platform_sources
  windows/clock.cpp
  windows/code_page.cpp
  windows/event.cpp
  windows/files.cpp
  windows/named_mutex.cpp
  windows/stop_signal.cpp
  windows/thread.cpp
  windows/thread_name.cpp
  windows/unload.cpp
)
set(quillet_platform_libraries setupapi cfgmgr32 shlwapi)

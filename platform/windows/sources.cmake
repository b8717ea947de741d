# SPDX-License-Identifier: MIT
set(quillet_platform_sources
  windows/cancellation.cpp
  windows/clock.cpp
  windows/code_page.cpp
  windows/device_file.cpp
  windows/device_reader.cpp
  windows/device_request.cpp
  windows/device_set.cpp
  windows/device_texts.cpp
  windows/event.cpp
  windows/files.cpp
  windows/named_mutex.cpp
  windows/process_origin.cpp
  windows/serial_settings.cpp
  windows/stop_signal.cpp
  windows/thread.cpp
  windows/thread_name.cpp
  windows/unload.cpp
  windows/windows_device_access.cpp
  windows/windows_device_tree.cpp
)
set(quillet_platform_libraries setupapi cfgmgr32 shlwapi)

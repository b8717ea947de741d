# SPDX-License-Identifier: MIT
# Setting calls and setting codes. They reach a scanner only through SendOnHandle (api/handle_calls.h).
set(QUILLET_SETTING_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/computed_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../setting_codes/setting_codes.cpp)

// Registry keys that stand for devices.
#pragma once

#include <windows.h>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quillet::platform {

// Keys under HKEY_LOCAL_MACHINE\System\CurrentControlSet, written by a test and gone with this object.
class RegistryTree {
  public:
    RegistryTree() = default;
    ~RegistryTree() { Delete(); }
    RegistryTree(const RegistryTree&) = delete;
    RegistryTree& operator=(const RegistryTree&) = delete;

    void Delete() {
        for (; !m_Made.empty(); m_Made.pop_back()) {
            EXPECT_EQ(::RegDeleteTreeA(HKEY_LOCAL_MACHINE, m_Made.back().c_str()), ERROR_SUCCESS) << m_Made.back();
        }
    }

    void WriteText(const std::string& path, const char* name, const std::string& text, DWORD type = REG_SZ) {
        Write(path, name, type, text.c_str(), text.size() + 1);
    }
    void WriteNumber(const std::string& path, const char* name, uint32_t number) {
        Write(path, name, REG_DWORD, &number, sizeof number);
    }

  private:
    void Write(const std::string& path, const char* name, DWORD type, const void* data, size_t size) {
        const std::string whole = "System\\CurrentControlSet\\" + path;
        RememberFirstMissing(whole);
        ASSERT_EQ(::RegSetKeyValueA(HKEY_LOCAL_MACHINE, whole.c_str(), name, type, data, static_cast<DWORD>(size)),
                  ERROR_SUCCESS)
            << whole;
    }

    // Everything at and below the first key of the path that isn't there is this object's.
    void RememberFirstMissing(const std::string& path) {
        for (size_t end = path.find('\\'); end != std::string::npos; end = path.find('\\', end + 1)) {
            if (RememberMissing(path.substr(0, end))) return;
        }
        RememberMissing(path);
    }
    bool RememberMissing(const std::string& path) {
        HKEY key = nullptr;
        if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
            ::RegCloseKey(key);
            return false;
        }
        m_Made.push_back(path);
        return true;
    }

    std::vector<std::string> m_Made;
};

}  // namespace quillet::platform

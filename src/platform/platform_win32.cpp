// Windows side of the platform layer.
#include "platform/platform.h"
#include "platform/test_hooks.h"

#include <windows.h>
#include <dbghelp.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <cstdio>
#include <new>
#include <string>

namespace quorin {
void onProcessDetach(bool threadsGone); // device/lifecycle.cpp
}

namespace quorin::platform {

Heap heapCreate(std::size_t initialSize)
{
    return HeapCreate(0, initialSize, 0);
}

void heapDestroy(Heap heap)
{
    if (heap != nullptr)
        HeapDestroy(static_cast<HANDLE>(heap));
}

void *heapAllocZeroed(Heap heap, std::size_t bytes)
{
    if (heap == nullptr || !hooks::allocationAllowed())
        return nullptr;
    void *block = HeapAlloc(static_cast<HANDLE>(heap), HEAP_ZERO_MEMORY, bytes);
    if (block != nullptr)
        hooks::blockTaken();
    return block;
}

void heapFree(Heap heap, void *block)
{
    if (heap != nullptr && block != nullptr) {
        HeapFree(static_cast<HANDLE>(heap), 0, block);
        hooks::blockReturned();
    }
}

void *virtualCommit(std::size_t bytes)
{
    if (!hooks::allocationAllowed())
        return nullptr;
    void *memory = VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (memory != nullptr)
        hooks::blockTaken();
    return memory;
}

void virtualRelease(void *memory, std::size_t)
{
    if (memory != nullptr) {
        VirtualFree(memory, 0, MEM_RELEASE);
        hooks::blockReturned();
    }
}

void sleepMs(std::uint32_t milliseconds)
{
    if (!hooks::pausesSkipped())
        Sleep(milliseconds);
}

bool registryCreateKey(const char *path, RegistryKey *key)
{
    HKEY k = nullptr;
    if (RegCreateKeyExA(HKEY_CURRENT_USER, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &k,
                        nullptr) != ERROR_SUCCESS)
        return false;
    *key = k;
    return true;
}

bool registryOpenKey(const char *path, RegistryKey *key)
{
    HKEY k = nullptr;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, KEY_READ, &k) != ERROR_SUCCESS)
        return false;
    *key = k;
    return true;
}

bool registryQueryValue(RegistryKey key, const char *name, std::uint32_t *type, std::uint8_t *data,
                        std::uint32_t *size)
{
    DWORD t = 0;
    DWORD s = size != nullptr ? *size : 0;
    LONG rc = RegQueryValueExA(static_cast<HKEY>(key), name, nullptr, &t, data, size != nullptr ? &s : nullptr);
    if (size != nullptr)
        *size = s;
    if (rc != ERROR_SUCCESS)
        return false;
    if (type != nullptr)
        *type = t;
    return true;
}

bool registrySetValue(RegistryKey key, const char *name, std::uint32_t type, const std::uint8_t *data,
                      std::uint32_t size)
{
    return RegSetValueExA(static_cast<HKEY>(key), name, 0, type, data, size) == ERROR_SUCCESS;
}

bool registryCloseKey(RegistryKey key)
{
    return key == nullptr || RegCloseKey(static_cast<HKEY>(key)) == ERROR_SUCCESS;
}

std::string localAppDataFolder()
{
    char path[MAX_PATH] = {};
    if (SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, path) != S_OK)
        return {};
    return path;
}

char pathSeparator()
{
    return '\\';
}

bool isDirectory(const std::string &path)
{
    return !path.empty() && PathIsDirectoryA(path.c_str());
}

bool makeDirectories(const std::string &path)
{
    if (path.empty())
        return false;
    std::string withSeparator = path;
    if (withSeparator.back() != '\\')
        withSeparator += '\\';
    return MakeSureDirectoryPathExists(withSeparator.c_str()) != FALSE;
}

bool replaceFile(const std::string &path, const void *bytes, std::size_t size)
{
    std::string tmp = path + ".tmp";
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, ".%u.tmp", static_cast<unsigned>(attempt + GetCurrentProcessId() % 100000u));
        tmp = path + suffix;
        HANDLE f = CreateFileA(tmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (f == INVALID_HANDLE_VALUE) {
            if (GetLastError() == ERROR_FILE_EXISTS)
                continue;
            return false;
        }
        const auto *p = static_cast<const unsigned char *>(bytes);
        std::size_t left = size;
        bool ok = true;
        while (left > 0 && ok) {
            DWORD chunk = left > 0x40000000u ? 0x40000000u : static_cast<DWORD>(left);
            DWORD written = 0;
            ok = WriteFile(f, p, chunk, &written, nullptr) && written == chunk;
            p += written;
            left -= written;
        }
        ok = ok && FlushFileBuffers(f);
        ok = CloseHandle(f) && ok;
        if (ok && MoveFileExA(tmp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        DeleteFileA(tmp.c_str());
        return false;
    }
    return false;
}

std::uint32_t processorCount()
{
    DWORD_PTR process = 0, system = 0;
    if (GetProcessAffinityMask(GetCurrentProcess(), &process, &system) && process != 0) {
        std::uint32_t n = 0;
        for (; process != 0; process &= process - 1)
            ++n;
        return n;
    }
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors > 0 ? info.dwNumberOfProcessors : 1;
}

namespace {

struct ThreadStart {
    void (*entry)(void *);
    void *arg;
};

DWORD WINAPI threadTrampoline(LPVOID start)
{
    const ThreadStart s = *static_cast<ThreadStart *>(start);
    delete static_cast<ThreadStart *>(start);
    s.entry(s.arg);
    return 0;
}

} // namespace

Thread threadStart(void (*entry)(void *), void *arg)
{
    auto *start = new (std::nothrow) ThreadStart{entry, arg};
    HANDLE thread = start != nullptr ? CreateThread(nullptr, 0, threadTrampoline, start, 0, nullptr) : nullptr;
    if (thread == nullptr)
        delete start;
    return thread;
}

void threadJoin(Thread thread)
{
    WaitForSingleObject(static_cast<HANDLE>(thread), INFINITE);
    CloseHandle(static_cast<HANDLE>(thread));
}

bool threadEndAtUnload(Thread thread)
{
    // The library is being unloaded under the loader lock, which a thread
    // needs to end by itself: the threads are stopped where they wait, and
    // what they waited on is left alone.
    TerminateThread(static_cast<HANDLE>(thread), 0);
    CloseHandle(static_cast<HANDLE>(thread));
    return false;
}

bool threadsEndByThemselvesAtUnload()
{
    return false;
}

} // namespace quorin::platform

// The unload hook. Attach and thread notifications do nothing.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    // reserved is set when the process ends: its other threads are gone.
    if (reason == DLL_PROCESS_DETACH)
        quorin::onProcessDetach(reserved != nullptr);
    return TRUE;
}

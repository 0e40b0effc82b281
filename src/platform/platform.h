// The platform layer: the only code that knows which operating system the
// library runs on. Everything else reaches the heap, virtual memory, sleeping,
// the per-user registry and the application-data folder through here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quorin::platform {

// ---- Library heap --------------------------------------------------------

// Opaque handle of a private heap. Destroying the heap releases every block
// still taken from it.
using Heap = void *;

Heap heapCreate(std::size_t initialSize);
// Destroys a heap created by heapCreate. A null handle is ignored.
void heapDestroy(Heap heap);
// Returns a zero-filled block, or null.
void *heapAllocZeroed(Heap heap, std::size_t bytes);
void heapFree(Heap heap, void *block);

// ---- General blocks ------------------------------------------------------

// A block of the C heap for short-lived buffers, or null.
void *blockAlloc(std::size_t bytes);
// Frees a block from blockAlloc; null is ignored.
void blockFree(void *block);

// ---- Virtual memory ------------------------------------------------------

// Commits read-write memory (zero-filled by the system), or returns null.
void *virtualCommit(std::size_t bytes);
// Releases memory from virtualCommit; bytes is the size it was committed with.
void virtualRelease(void *memory, std::size_t bytes);

// ---- Time ----------------------------------------------------------------

void sleepMs(std::uint32_t milliseconds);

// ---- Threads -------------------------------------------------------------

// The number of processors the process may run on (at least 1).
std::uint32_t processorCount();

// Opaque running thread.
using Thread = void *;
// Starts a thread running entry(arg); null when it cannot start.
Thread threadStart(void (*entry)(void *), void *arg);
// Waits for the thread to end and releases it.
void threadJoin(Thread thread);
// The same while the library is being unloaded: on Windows, where a thread
// cannot end by itself under the loader lock, the thread (which must be
// waiting, holding nothing) is stopped where it is. True when the thread
// ended by itself, so that what it waited on may be destroyed.
bool threadEndAtUnload(Thread thread);
// True where threadEndAtUnload lets a thread end by itself (it must be
// woken first); false where it stops the thread where it waits (it must
// not be woken: it could be stopped holding what it woke for).
bool threadsEndByThemselvesAtUnload();

// ---- Per-user registry (HKEY_CURRENT_USER) -------------------------------

// Value types, numbered as the Windows registry numbers them.
enum RegistryType : std::uint32_t {
    kRegNone = 0,
    kRegString = 1,
    kRegBinary = 3,
    kRegDword = 4,
};

// Opaque open key.
using RegistryKey = void *;

// Opens (creating it when absent) the key at path below the current user's
// root. Path components are separated by single backslashes.
bool registryCreateKey(const char *path, RegistryKey *key);
// Opens an existing key for reading; fails when it does not exist.
bool registryOpenKey(const char *path, RegistryKey *key);
// Reads a value. On entry *size is the capacity of data; when the stored
// value is larger the call fails and *size is set to the stored size. On
// success *size is the stored size and *type its type (either may be null).
bool registryQueryValue(RegistryKey key, const char *name, std::uint32_t *type, std::uint8_t *data,
                        std::uint32_t *size);
bool registrySetValue(RegistryKey key, const char *name, std::uint32_t type,
                      const std::uint8_t *data, std::uint32_t size);
// Closes the key; changes made through it are stored for good by then.
// False when they could not be stored (a key opened for reading, or one
// without changes, closes with true).
bool registryCloseKey(RegistryKey key);

// ---- Files and folders ---------------------------------------------------

// The per-user local application-data folder, without a trailing separator;
// empty when it cannot be determined.
std::string localAppDataFolder();
// The separator between folder names in a path.
char pathSeparator();
bool isDirectory(const std::string &path);
// Creates every missing folder of path (a folder path, with or without a
// trailing separator).
bool makeDirectories(const std::string &path);
// Replaces the file at path with bytes as one step: a temporary file in the
// same folder is written, flushed to disk and renamed over path, so a crash
// or a full disk keeps the previous file whole.
bool replaceFile(const std::string &path, const void *bytes, std::size_t size);

} // namespace quorin::platform

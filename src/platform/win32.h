// Shared by the Win32 files of the platform layer only.
#pragma once

#include <windows.h>

#include "platform/system.h"

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide text is 16-bit units on Windows");

// The system's wide text and ours are the same units under two type names.
inline const wchar_t *os_text(const char16_t *text) {
    return reinterpret_cast<const wchar_t *>(text);
}
inline wchar_t *os_text(char16_t *text) {
    return reinterpret_cast<wchar_t *>(text);
}
inline const char16_t *our_text(const wchar_t *text) {
    return reinterpret_cast<const char16_t *>(text);
}

// The handle behind a stream argument: 1 and 2 are asked for at each call, so
// that a handle the process was given later is the one that is used.
inline HANDLE os_handle_of(os_handle stream) {
    if (stream == STREAM_OUT) return GetStdHandle(STD_OUTPUT_HANDLE);
    if (stream == STREAM_ERR) return GetStdHandle(STD_ERROR_HANDLE);
    return reinterpret_cast<HANDLE>(stream);
}

inline uint64_t time_of(FILETIME time) {
    return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}
inline FILETIME filetime_of(uint64_t time) {
    FILETIME result;
    result.dwLowDateTime = static_cast<DWORD>(time);
    result.dwHighDateTime = static_cast<DWORD>(time >> 32);
    return result;
}

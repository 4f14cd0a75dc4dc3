// Files written by the rewriter: the platform calls behind OutputFile, and the few file-system
// operations that writing a result safely needs.
#pragma once

#include <cstdint>
#include <string>

namespace corvi {

// Each call returns its failure value and leaves LastPlatformError() set when it fails.

// Opens the file for reading and writing, creating it when missing and not emptying it, and
// takes an exclusive lock: a second open of a locked file fails (CreateFile). -1 on failure.
int PlatformOpenWrite(const wchar_t* name);
// Moves the file position to `offset` from the start (SetFilePointer); false on failure.
bool PlatformSeek(int file, uint32_t offset);
// Cuts the file at the current position (SetEndOfFile); false on failure.
bool PlatformTruncate(int file);
// Writes `count` bytes at the current position (WriteFile); returns how many were written, or
// -1 on failure. Retries interrupted and partial writes until the disk refuses.
int64_t PlatformWrite(int file, const uint8_t* bytes, uint32_t count);
// Deletes a file (DeleteFile); false on failure.
bool PlatformDeleteFile(const wchar_t* name);
// Renames `from` over `to`, replacing it; false on failure.
bool PlatformRenameFile(const wchar_t* from, const wchar_t* to);
// Makes a new private directory beside `near` (the directory part of that path) or in the
// system's temporary directory when `near` is null; returns its path, empty on failure.
std::wstring PlatformMakeTempDirectory(const wchar_t* near);
// Removes an empty directory; false on failure.
bool PlatformRemoveDirectory(const wchar_t* name);

// The code of a full disk, for a write that falls short.
uint32_t PlatformDiskFullCode();

}  // namespace corvi

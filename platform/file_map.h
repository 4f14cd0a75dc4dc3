// Read-only file mapping: the platform calls behind MappedFile.
#pragma once

#include <cstdint>
#include <string>

namespace corvi {

// The bytes of a path as the system calls take it: UTF-8, with "\\" read as "/" so that the
// paths composed by the walk ("dir\\*.*") name the same files as the user's own separators.
std::string NativePath(const wchar_t* name);
// The bytes of a path naming a file to open: a name on this system may itself hold "\\", so the
// name exactly as given when an entry of that name exists, and NativePath(name) only when none
// does.
std::string ExistingPath(const wchar_t* name);

// Each call returns its failure value and leaves LastPlatformError() set when it fails.

// Opens an existing file for reading (CreateFile); -1 on failure. A directory fails.
int PlatformOpenRead(const wchar_t* name);
// The same for a path as the system takes it.
int PlatformOpenPath(const std::string& path);
// Low 32 bits of the file's size (GetFileSize); 0xFFFFFFFF on failure.
uint32_t PlatformFileSize(int file);
// The whole size of the file; UINT64_MAX on failure.
uint64_t PlatformFileSize64(int file);
// Maps `length` bytes read-only (CreateFileMapping); null on failure, also for length 0.
void* PlatformCreateMapping(int file, uint32_t length);
// The view of a mapping (MapViewOfFile); null on failure.
const uint8_t* PlatformMapView(void* mapping, uint32_t length);
void PlatformUnmapView(const uint8_t* view);
void PlatformCloseMapping(void* mapping, uint32_t length);
void PlatformCloseFile(int file);

}  // namespace corvi

#pragma once
// Path helpers shared by the front end, the mechanism reader and the director.

#include <string>

// Separator used to build mechanism file paths in directory mode.
#ifdef _WIN32
inline constexpr char FILE_SEPARATOR[] = "\\";
#else
inline constexpr char FILE_SEPARATOR[] = "/";
#endif

// The file name of `path` without its directory and without its last extension.
// Both '/' and '\' count as separators on every platform; a dot inside a directory
// name is not an extension; a path ending with a separator gives "".
std::string baseNameOfPath(const std::string& path);

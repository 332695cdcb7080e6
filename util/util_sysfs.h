// Attribute files of sysfs device directories (Documentation/filesystems/sysfs.rst of the Linux kernel).
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kPathSize = 256;  // bytes of every path field, the terminator included

// Reads the attribute `file` of the device directory `directory` once, at most `length` bytes, into `buffer`. Removes a
// line feed at the end. Writes no terminator: the caller must pass a zero-filled buffer that is at least one byte
// longer than `length`.
// Returns the number of bytes read, with the line feed; -1 if `length` is negative, the path is longer than 254
// characters or the file cannot be opened; the negative result of read if reading fails.
[[nodiscard]] std::int32_t INTF_UTIL_Read(const char *directory, const char *file, char *buffer, std::int32_t length);

// Writes the `length` bytes at `data` once into the attribute `file` of the device directory `directory`. Never creates
// the file. If `inode` is not 0, writes only if the directory has that inode number, and so never to a device that
// replaced another.
// Returns the number of bytes written; -1 if the path is longer than 254 characters, the file cannot be opened or
// (without a record) the inode number differs; the negative result of write if writing fails.
[[nodiscard]] std::int32_t INTF_UTIL_Write(const char *directory, const char *file, const char *data,
                                           std::uint32_t length, std::uint64_t inode = 0);

// Returns the inode number of the device directory `directory`, or 0 if it cannot be read. When the kernel deletes a
// device and finds it again, the device gets a new directory with another number.
[[nodiscard]] std::uint64_t INTF_UTIL_Inode(const char *directory);

// Attribute files of sysfs device directories (Documentation/filesystems/sysfs.rst of the Linux kernel).
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kPathSize = 256;  // bytes of every path field, the terminator included

// Reads the attribute `file` of the device directory `directory` once, at most `length` bytes, into `buffer`, and takes
// off a line feed that ends what was read. No terminator is written: the caller passes a zero-filled buffer that is at
// least one byte longer than `length`.
// Returns the number of bytes read, the line feed included; -1 when `length` is negative, the path is longer than 254
// characters or the file cannot be opened; the negative result of read when reading fails.
[[nodiscard]] std::int32_t INTF_UTIL_Read(const char *directory, const char *file, char *buffer, std::int32_t length);

// Writes the `length` bytes at `data` once into the attribute `file` of the device directory `directory`, which is
// never created. With an `inode` other than 0, only while that is the directory's inode number: nothing is written to a
// device that has taken the place of another.
// Returns the number of bytes written; -1 when the path is longer than 254 characters, the file cannot be opened or,
// without a record, the directory is another one; the negative result of write when writing fails.
[[nodiscard]] std::int32_t INTF_UTIL_Write(const char *directory, const char *file, const char *data,
                                           std::uint32_t length, std::uint64_t inode = 0);

// Returns the inode number of the device directory `directory`, or 0 where it cannot be read. The kernel gives a device
// that is deleted and found again a new directory, with another number.
[[nodiscard]] std::uint64_t INTF_UTIL_Inode(const char *directory);

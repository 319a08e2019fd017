// SPDX-License-Identifier: MIT
// A small ext4 file system in a file, mounted through a loop device, inside a throwaway root. What a copy of the file
// holds at any moment is what a power cut would leave: nothing of what the kernel has not written yet.
#pragma once

#include <cstdint>
#include <string>

namespace tests {

class DiskImage {
public:
    static void make(const std::string &file);

    // Mounts it; commits of its journal wait to be asked for. Throws std::runtime_error, which says why not.
    DiskImage(const std::string &file, std::string place);
    ~DiskImage();
    DiskImage(const DiskImage &) = delete;
    DiskImage &operator=(const DiskImage &) = delete;

    // As some other program's flush does it: the journal's part of everything so far, and nobody else's data.
    void commit() const;
    // Of a moment at which nothing is being written.
    void copy_to(const std::string &file) const;

private:
    std::string written_so_far() const;

    std::string file_, place_, device_;
};

} // namespace tests

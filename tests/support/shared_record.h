// A record in a mapped file, which a library that is preloaded into another program maps as well.

#pragma once

#include "support/temp_dir.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

template <typename Record> class SharedRecord {
public:
    // All of it is zero at first.
    SharedRecord()
    {
        folder.write(NAME, std::string(sizeof(Record), '\0'));
        const int file = open(path().c_str(), O_RDWR | O_CLOEXEC);
        void *mapped = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        if (mapped != MAP_FAILED)
            record = static_cast<Record *>(mapped);
        else
            ADD_FAILURE() << "nothing to share: " << strerror(errno);
    }
    ~SharedRecord()
    {
        if (record)
            munmap(record, sizeof *record);
    }
    SharedRecord(const SharedRecord &) = delete;
    SharedRecord &operator=(const SharedRecord &) = delete;

    // Of the file, for the other program.
    std::string path() const
    {
        return folder.file(NAME).string();
    }
    // Null when it could not be mapped, which has failed the test.
    Record *get() const
    {
        return record;
    }
    Record *operator->() const
    {
        return record;
    }

private:
    static constexpr const char *NAME = "shared";

    TempDir folder;
    Record *record = nullptr;
};

}  // namespace support

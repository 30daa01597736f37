// SPDX-License-Identifier: Apache-2.0
#include "captured.h"

#include <sys/mman.h>
#include <unistd.h>
#include <cstdio>

Captured::Captured(int fd) : fd_(fd)
{
    std::fflush(nullptr);
    saved_ = dup(fd);
    file_ = memfd_create("captured", MFD_CLOEXEC);
    dup2(file_, fd);
}

Captured::~Captured()
{
    std::fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    close(file_);
}

std::string Captured::text()
{
    std::fflush(nullptr);
    std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    const ssize_t got = pread(file_, all.data(), all.size(), 0);
    all.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return all;
}

// SPDX-License-Identifier: Apache-2.0
#include <nyxus/image.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "trace/failure.h"
#include "unit.h"

uint8_t nyxus_fw_bin[NYXUS_FW_BIN_CAPACITY];
uint16_t nyxus_fw_bin_size = 0;
uint8_t nyxus_mfi_bin[NYXUS_MFI_BIN_CAPACITY];
uint16_t nyxus_mfi_bin_size = 0;

static constexpr uint8_t kErased = 0xFF;

int32_t MP_BinGetRealSize(const uint8_t* bin, uint32_t size)
{
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, bin);
    NY_TRACE(NY_TRACE_ERROR, "bin size original = 0x%04X (%d) \n", size, static_cast<int>(size));
    uint32_t real_size = size;
    while (real_size > 0 && bin[real_size - 1] == kErased)
        --real_size;
    if (real_size > 0) {
        NY_TRACE(NY_TRACE_ERROR, "bin size actual   = 0x%04X (%d) \n", real_size - 1,
                 static_cast<int>(real_size - 1));
    } else {
        real_size = 1; // an erased image counts one byte
    }
    NY_TRACE(NY_TRACE_ERROR, "bin size return   = 0x%04X (%d) \n", real_size,
             static_cast<int>(real_size));
    return static_cast<int32_t>(real_size);
}

int32_t MP_BinLoadFromFile(uint8_t* buf, uint32_t bin_size, const char* path)
{
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, buf);
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, path);
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr)
        return NY_FAIL_SYSTEM(errno, "Open bin file '%s' FAILED", path);

    std::fseek(file, 0, SEEK_END);
    const long file_size = std::ftell(file);
    std::fseek(file, 0, SEEK_SET);
    NY_TRACE(NY_TRACE_ERROR, "BIN file_size = %d (fseek) \n", static_cast<int>(file_size));
    // The file is left open on purpose: the host closes all of them after this.
    if (file_size > static_cast<long>(bin_size))
        return NY_FAIL(NYXUS_E_BIN_SIZE, "BIN file_size > bin_size, buffer too small");

    const size_t count = std::fread(buf, 1, bin_size, file);
    const int read_error = std::ferror(file) != 0 ? errno : 0;
    std::fclose(file);
    if (read_error != 0)
        return NY_FAIL_SYSTEM(read_error, "Read bin file '%s' FAILED", path);
    NY_TRACE(NY_TRACE_ERROR, "BIN file_size = %d (fread) \n", static_cast<int>(count));
    return MP_BinGetRealSize(buf, static_cast<uint32_t>(count));
}

int32_t MP_FwLoad(const char* path)
{
    nyxus_fw_bin_size =
        static_cast<uint16_t>(MP_BinLoadFromFile(nyxus_fw_bin, sizeof nyxus_fw_bin, path));
    NY_TRACE(NY_TRACE_ERROR, "FW BIN '%s' buffer load OK, nyxus_fw_bin_size = 0x%04X (%d) \n",
             path != nullptr ? path : "(null)", nyxus_fw_bin_size, nyxus_fw_bin_size);
    return 0; // a failure shows in nyxus_errno and in the size only
}

void MP_FwFreeMFiBin(void* ptr)
{
    if (ptr == nullptr)
        return;
    std::free(ptr);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Free MFi BIN buffer OK \n");
}

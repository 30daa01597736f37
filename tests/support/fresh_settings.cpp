// SPDX-License-Identifier: Apache-2.0
// Every test starts with the process-wide state that the library has at load time.
#include <nyxus/nyxus.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

class FreshSettings : public testing::EmptyTestEventListener {
public:
    FreshSettings()
    {
        for (int32_t i = 0; i < xu_table_list_count; ++i) {
            const NyXuTable& entry = xu_table_list[i];
            tables_.emplace_back(entry.table, entry.table + entry.count);
        }
    }

private:
    void OnTestStart(const testing::TestInfo&) override
    {
        const NyConfig at_load = {0, 1, 1, 0};
        LIB_NyxusSetConfig(&at_load);
        XU_SetWriteCycleTime(0);
        nyxus_set_line_callback(nullptr, nullptr, nullptr);
        nyxus_set_progress_callback(nullptr, nullptr, nullptr);
        nyxus_errno = 0;
        nyxus_rv = 0;
        nyxus_fw_bin_size = 0;
        nyxus_mfi_bin_size = 0;
        for (size_t i = 0; i < tables_.size(); ++i)
            std::copy(tables_[i].begin(), tables_[i].end(), xu_table_list[i].table);
    }

    std::vector<std::vector<uvc_xu_ctrl>> tables_;
};

const bool installed = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FreshSettings);
    return true;
}();

} // namespace

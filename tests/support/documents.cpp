#include "support/documents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ivra::tests {

void keep_documents(const std::string& program, const std::string& output)
{
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    if (test == nullptr || !output.starts_with("{\""))
        return;
    std::string name = std::string{test->test_suite_name()} + "." + test->name();
    std::ranges::replace(name, '/', '-');
    const std::filesystem::path file = std::filesystem::path{IVRA_TEST_DOCUMENTS} / program / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream{file, std::ios::binary | std::ios::app}; // tests run one a process
    stream << output << std::flush;
    if (!stream)
        throw std::runtime_error{"cannot write " + file.string()};
}

} // namespace ivra::tests

#include "readings.h"

#include <gtest/gtest.h>

#include <string>

namespace ivra::tests {
namespace {

TEST(readings_check, lets_no_name_be_taken_for_anything_else)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", R"("a|b='c\n\u001b[2Jé")"}}).host(plain_host);
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | 'a_b__c??[2Jé FPGA'=45.5C\n"));
    rack.faults(R"({"call": "ivra_hw_top_get_temperature", "errno": "EIO"})");
    const run_t run = rack.run("--check");
    EXPECT_EQ(run.out,
              "UNKNOWN - 1 board, 1 unknown; a_b='c??[2Jé: FPGA temperature could not be read: Input/output error\n");
    EXPECT_EQ(run.status, 3);
}

} // namespace
} // namespace ivra::tests

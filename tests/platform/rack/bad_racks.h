#ifndef IVRA_TESTS_BAD_RACKS_H
#define IVRA_TESTS_BAD_RACKS_H

#include <string>
#include <vector>

namespace ivra::tests {

/// Who sees the mistake of a rack, or of a fault plan.
enum class seen_by_t
{
    parser, ///< it is not JSON, or not JSON that we take
    schema, ///< any JSON Schema validator does
    code    ///< it is good by the schema
};

struct bad_rack_t
{
    std::string why;
    std::string text;
    std::string error; ///< what is said after "FILE: "
    seen_by_t seen_by;
};

const std::vector<bad_rack_t>& bad_racks();

/// A fault plan with a mistake.
struct bad_plan_t
{
    std::string text;
    std::string error; ///< what is said after "FILE: "
    seen_by_t seen_by;
};

const std::vector<bad_plan_t>& bad_plans();

/// A rack of one accelerator, `members` beside its model.
std::string rack_with(const std::string& members);

} // namespace ivra::tests

#endif

#ifndef IVRA_TESTS_SWEEP_PROPERTIES_H
#define IVRA_TESTS_SWEEP_PROPERTIES_H

#include "cases.h"

#include <string>
#include <vector>

namespace ivra::tests {

/// What is wrong with a run, beside the same one without a fault. (Whether documents keep to their schemas is another
/// matter.)
std::vector<std::string> complaints_of(const story_t& story, const std::string& rule, const record_t& whole,
                                       const record_t& record);

} // namespace ivra::tests

#endif

#ifndef IVRA_TESTS_SUPPORT_SCHEMA_H
#define IVRA_TESTS_SUPPORT_SCHEMA_H

#include "support/process.h"

#include <string>
#include <utility>
#include <vector>

namespace ivra::tests {

/// A document, and texts in it with what takes the place of each, once, in a copy of it.
struct spoiled_document_t
{
    std::string document;
    std::vector<std::pair<std::string, std::string>> changes;
};

/// Says which of the copies a JSON Schema takes; fails when it does not take a document, or a text is not in it.
run_t taken_by_schema(const std::string& schema, const std::vector<spoiled_document_t>& documents);

/// Says which parts of a JSON Schema do not say what they stand for, among them what objects may hold besides their
/// members.
run_t wording_of_schema(const std::string& schema);

} // namespace ivra::tests

#endif

#ifndef IVRA_TESTS_SUPPORT_DOCUMENTS_H
#define IVRA_TESTS_SUPPORT_DOCUMENTS_H

#include <string>

namespace ivra::tests {

/// Appends JSON documents that a program printed, a line each, to the file of the calling test in the folder that
/// IVRA_TEST_DOCUMENTS names, below a folder named like the program. The test "json-documents" judges them when all
/// tests have run. Other output is not kept, nor is any without that variable.
void keep_documents(const std::string& program, const std::string& output);

} // namespace ivra::tests

#endif

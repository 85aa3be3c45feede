#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace varnoth::test {

// Compares a whole transcript (log lines, a request, a report) with the expected text kept as data in
// tests/golden/<name>.txt, so a long exact output is one line of test code. Each pair in `replace` turns
// a run-dependent text (a port, a temporary folder) into a stable placeholder first. With
// VARNOTH_UPDATE_GOLDEN=1 a file that differs is rewritten from the actual text and the test fails naming
// it: review its diff and run again. CI (the variable CI set) refuses to rewrite.
void expectGolden(const std::string& name, std::string actual,
                  const std::vector<std::pair<std::string, std::string>>& replace = {});

// Lines joined with a newline after each, the form the golden files hold.
std::string joinLines(const std::vector<std::string>& lines);

// Case text with \n, \r, \t and \xHH written out.
std::string unescaped(const std::string& text);

// A case's arguments: the text after its word split at " | ", each unescaped (one empty one for no text).
std::vector<std::string> caseArguments(const std::string& rest);

// Answers each case of tests/golden/<name>.txt and compares the file with its cases and answers. A case is a
// line "word rest"; its answer is the line after it, written as "= answer". Blank lines and lines starting
// with "#" explain the cases and are kept.
void expectTranscript(const std::string& name,
                      const std::function<std::string(const std::string&, const std::string&)>& answer);

} // namespace varnoth::test

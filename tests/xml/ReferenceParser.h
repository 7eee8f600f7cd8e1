// The parser's rules carried out as they are stated: one scan for the closing tag per element, one call per level.
// Slow, and plain enough to be believed.
#ifndef QUARVEL_TESTS_XML_REFERENCEPARSER_H
#define QUARVEL_TESTS_XML_REFERENCEPARSER_H

#include <string>
#include <string_view>
#include <utility>

// The dump of the root ("none" without one) and the status for a document's body.
std::pair<std::string, int> ParseByReference(std::string_view body);

#endif

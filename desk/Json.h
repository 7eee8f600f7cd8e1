// The form in which programs get what people read as text.
#ifndef QUARVEL_DESK_JSON_H
#define QUARVEL_DESK_JSON_H

#include <nlohmann/json_fwd.hpp>
#include <string>

using Json = nlohmann::ordered_json;

// One line, whatever bytes the texts hold.
std::string ToLine(const Json& value);

#endif

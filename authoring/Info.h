// What a bundle is, for people and for programs.
#ifndef QUARVEL_AUTHORING_INFO_H
#define QUARVEL_AUTHORING_INFO_H

#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "authoring/LoadedBundle.h"

namespace authoring {

// {"schema":1,"bundle","description","groups":[...],"packages":[...],"signers":[...]}: the packages in transfer order,
// the signers with the dates of those certificates that are given.
nlohmann::json DescribeBundle(const LoadedBundle& loaded, std::span<const Certificate> certificates);

// The same as text of a few tables.
std::string InfoText(const nlohmann::json& info);

// Rows under a head, in columns as wide as they need to be, two blanks between them.
std::string Table(const std::vector<std::vector<std::string>>& rows);

}  // namespace authoring

#endif

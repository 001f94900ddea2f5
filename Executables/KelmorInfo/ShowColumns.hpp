#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"

/// The numbers of the columns that a list names, in its order: "time,x" or "0,3" or both. A name
/// may hold commas, and comes before a number that reads alike; of columns of one name the first is
/// meant. An empty list stands for all columns. Fails on a column that is not there, with the names
/// of those that are.
std::vector<std::uint64_t> FindColumns(const std::string& list, const MyVector<std::string>& names);

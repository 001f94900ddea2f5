#pragma once

#include <cstdint>
#include <iosfwd>

#include "Executables/KelmorInfo/Json.hpp"
#include "Executables/KelmorInfo/ShowOptions.hpp"
#include "Executables/Series/IndexedSeries.hpp"

/// Prints the values of one kept step of coefficients or tensors; `index` is that of all kept
/// steps. `document` is what JSON says besides.
void ShowStep(std::ostream& os, ShowOptions::Format format, IndexedSeries& series,
              const H5_Objects::StepIndex& index, std::uint64_t step, Json document);

// Numbers, sizes, intervals and the time of day as text for people.
#pragma once

#include <cstdint>
#include <string>

/// Without an exponent, in `precision` digits before and after the point together; digits before
/// the point are never dropped. With 5: 12.346, 0.0977, 123456. Not finite: "inf", "nan".
std::string DoubleToStringDecimal(double value, int precision);

/// The shortest decimal that reads back as the same double.
std::string RoundTrip(double value);
/// The same with an exponent in any case.
std::string RoundTripWithExponent(double value);

/// In " KiB" below 2^20 bytes (also the smallest counts), " MiB" below 2^30, else " GiB". The
/// unit's four characters count into `width`, the point and a sign do not.
std::string BytesToAscii(std::int64_t bytes, int width = 9);

/// In the largest of " ms", " sec", " min", " h" and " day" of which the interval holds at least
/// one, else in " ms". The unit counts into `width` as above.
std::string TimeIntervalToAscii(double seconds, int width = 9);

/// Local date and time with the offset from UTC: "2024-02-29 13:05:09 +0100".
std::string AsciiTime();

/// As a shell takes it for one word.
std::string Quoted(const std::string& word);

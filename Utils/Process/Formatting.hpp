// Numbers, sizes, intervals and the time of day as text for people.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Writes a number without an exponent, in `precision` digits before and after the point together;
/// digits before the point are never dropped. A precision of 5 gives 12.346, 0.0977 and 123456.
/// Numbers that are not finite are "inf" and "nan".
std::string DoubleToStringDecimal(double value, int precision);

/// Returns the shortest decimal that reads back as the same double.
std::string RoundTrip(double value);
/// Returns the shortest decimal with an exponent that reads back as the same double.
std::string RoundTripWithExponent(double value);

/// Writes a count of bytes in " KiB" below 2^20 bytes (also the smallest counts), in " MiB" below
/// 2^30, and else in " GiB". The unit's four characters count into `width`; the point and a sign do
/// not.
std::string BytesToAscii(std::int64_t bytes, int width = 9);

/// Writes an interval in the largest of " ms", " sec", " min", " h" and " day" of which it holds at
/// least one, else in " ms". The unit counts into `width` as in BytesToAscii().
std::string TimeIntervalToAscii(double seconds, int width = 9);

/// Returns the local date and time with the offset from UTC: "2024-02-29 13:05:09 +0100".
std::string AsciiTime();

/// Quotes a text, if it has to be, so that a shell takes it for one word.
std::string Quoted(const std::string& word);

#pragma GCC visibility pop

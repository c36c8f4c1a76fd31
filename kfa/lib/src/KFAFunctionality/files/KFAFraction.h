// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: fractional values of resource parameters. Records hold them in hundredths; files are read
// in single precision and cut off, so that not every number with two decimals can be held: 99.99 is read as 99.98.
#ifndef KFAFUNCTIONALITY_FILES_KFAFRACTION_H
#define KFAFUNCTIONALITY_FILES_KFAFRACTION_H

#include <string>

#include <KFAFunctionality/KFATypes.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// The hundredths of the number that a text begins with; false when there is none or it is out of range.
bool readFraction(const char* text, long long& hundredths);
// The shortest text of so many hundredths.
std::string writeFraction(long long hundredths);

// Holds the number that is asked for against the one that the record gives back: empty when they are the same number,
// however it is written, else what is lost, with the nearest number that is held.
std::string compareFractions(const std::string& asked, const std::string& given);

}  // namespace KFA

#pragma GCC visibility pop

#endif

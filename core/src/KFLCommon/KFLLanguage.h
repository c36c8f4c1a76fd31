// SPDX-License-Identifier: Apache-2.0
// The language that the headers are written in. Each header includes this one, itself or through another.
#ifndef KFLCOMMON_KFLLANGUAGE_H
#define KFLCOMMON_KFLLANGUAGE_H

#if !defined(__cplusplus) || __cplusplus < 202002L
#error "The headers of KFL and KFA are C++20: compile with -std=c++20 or later."
#endif

// On a class: its members are none of what its library exports.
#define KFL_HIDDEN [[gnu::visibility("hidden")]]

#endif

#pragma once

#include <orvante/export.hpp>

ORVANTE_API_BEGIN
// The library version, exported as data.

extern "C" {
extern const double ORVANTESDKVersionNumber;
extern const unsigned char ORVANTESDKVersionString[];
}

ORVANTE_API_END

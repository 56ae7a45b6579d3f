#pragma once
// The library version, exported as data.

extern "C" {
extern const double ORVANTESDKVersionNumber;
extern const unsigned char ORVANTESDKVersionString[];
}

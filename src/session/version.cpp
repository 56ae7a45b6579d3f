#include <orvante/version.hpp>

extern "C" {
const double ORVANTESDKVersionNumber = 1.0;
const unsigned char ORVANTESDKVersionString[] = "orvante 1.0.0";
}

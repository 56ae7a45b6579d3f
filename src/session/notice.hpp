#pragma once
// Internal: shows a notice through the application's notice handler.

#include <orvante/log.hpp>

namespace orvante {
void showNotice(const Notice& notice);
}

#pragma once
// The service's web page: printer commands typed on the left, their label
// drawn on the right as one types, the printers and a Print button. One
// HTML file with its script and style inside, no outside resources.

#include <string_view>

namespace orvante::serve {

std::string_view pageHtml();

}  // namespace orvante::serve

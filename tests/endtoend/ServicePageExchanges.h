#pragma once

// What docs/service.md shows and what the service's log holds, in one form, so that they can be
// compared.

#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "support/ServicePage.h"

namespace vexim::testing {

/// One request with its answer, or one step of the live connection, as the page shows it: "http" or
/// "live", and the text.
using Exchange = std::pair<std::string, std::string>;

/// The log of the service, as the page would show it.
std::vector<Exchange> recorded(const Array& log);
/// The exchanges that the page shows. Each step of a `live` example is one exchange.
std::vector<Exchange> documented(const std::vector<PageExample>& examples);
/// An exchange without what differs from run to run, and without white space, which follows the
/// lengths.
std::string form(std::string text);
/// The page with its examples replaced by `exchanges`. Throws if one does not fit.
std::string pageWith(const std::string& page, const std::vector<PageExample>& examples,
                     const std::vector<Exchange>& exchanges);

}  // namespace vexim::testing

#pragma once

#include "cli/replay_report.h"
#include "report/call_page.h"

#include <memory>
#include <string>

namespace cli {

// Passes everything on to `next`, and writes a page of the calls at the end. Throws
// std::runtime_error when the file cannot be written: by this function, before a capture is
// replayed in vain, and by onEnd.
std::unique_ptr<ReplayReport> makePageReport(std::unique_ptr<ReplayReport> next,
                                             const std::string& path,
                                             const report::PageTitle& title,
                                             const gateway::Network& inside);

} // namespace cli

#pragma once
// The panel as browsers see it: HTTP around its service and its pages.

#include "core/unique_fd.h"
#include "panel/guard.h"
#include "panel/pages.h"
#include "panel/service.h"

namespace vb::panel {

// Serves a listening socket, for the rest of the process's life.
void serve_http(UniqueFd listener, const Guard& guard, const Service& service, Pages& pages);

} // namespace vb::panel

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "clients.h"
#include "derived_fields.h"
#include "model.h"
#include "page_files.h"

// After all that includes Eigen, to which its macro _res does harm.
#include <httplib.h>

namespace examples::viewer {

/// What the routes answer from; all of it must outlive the server.
struct Viewer {
    const Model& model;
    DerivedFields& fields;
    Clients& clients;
    const PageFiles& pageFiles;
    std::uint64_t budget;            ///< that a page starts with
    std::vector<std::string> hosts;  ///< names that requests may call the server by; empty: any
};

/// Adds the routes to a server:
///
///     GET  /, /page.js, /page.css        the page
///     GET  /api/cloud                    what there is to see
///     GET  /api/maps/NAME                a colour map, 1024 times red, green, blue, 255 in bytes
///     POST /api/clients                  makes a client
///     POST /api/clients/close            forgets one
///     POST /api/frame                    what a client has to draw
///     POST /api/pick                     the point under the cursor
///     GET  /api/nodes/KEY                the points of a node, see `encodeNode`
///     GET  /api/fields/FIELD             whether a field is computed, which begins with this
///     GET  /api/nodes/KEY/FIELD          the field of a node's points, see `DerivedFields`
///
/// Messages are JSON (messages.h). What cannot be answered gets a status of 400 and above, with {"error":
/// TEXT}.
void addRoutes(httplib::Server& server, const Viewer& viewer);

}  // namespace examples::viewer

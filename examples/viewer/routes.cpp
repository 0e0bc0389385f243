#include "routes.h"

#include <algorithm>
#include <string_view>

#include <examples/common/color_scale.h>
#include <ombrix/core/view/octree_query.h>

#include "messages.h"
#include "node_encoding.h"

namespace examples::viewer {

using httplib::Request;
using httplib::Response;
using ombrix::core::Octree;

namespace {

constexpr const char* BYTES = "application/octet-stream";
constexpr const char* JSON = "application/json";

/// An answer other than success.
struct Refusal {
    int status;
    std::string text;
};

void refuse(Response& response, int status, std::string_view text) {
    response.status = status;
    response.set_content(describeError(text), JSON);
}

/// A handler that may throw.
template <class Answer>
httplib::Server::Handler guarded(Answer answer) {
    return [answer](const Request& request, Response& response) {
        try {
            answer(request, response);
        } catch (const Refusal& refusal) {
            refuse(response, refusal.status, refusal.text);
        } catch (const BadMessage& error) {
            refuse(response, 400, error.what());
        }
    };
}

/// Whether a request names one of the server's hosts: a page of another site whose name was made to point
/// here does not.
bool namesHost(const Request& request, const std::vector<std::string>& hosts) {
    const std::string named = request.get_header_value("Host");
    return std::any_of(hosts.begin(), hosts.end(), [&](const std::string& host) {
        return named.starts_with(host) && (named.size() == host.size() || named[host.size()] == ':');
    });
}

const Octree::Node& nodeOf(const Octree& tree, const Request& request) {
    const auto key = keyOf(request.matches[1].str());
    if (!key || !tree.hasKey(*key))
        throw Refusal{404, "there is no such node"};
    return tree.node(*key);
}

Field fieldOf(const std::string& name) {
    const auto field = fieldNamed(name);
    if (!field)
        throw Refusal{404, "there is no such field"};
    return *field;
}

std::string colorsOf(const std::string& name) {
    for (const auto& [known, number] : mapNames()) {
        if (known != name)
            continue;
        ombrix::core::ColorMap map;
        map.set_colors(number);
        std::string bytes;
        for (unsigned step = 0; step < ombrix::core::ColorMap::MAX_STEPS; ++step) {
            ombrix::core::ColorRGB_F color = map.color(step);
            const ombrix::core::ColorRGB rgb = color.RGBFloatTo24();
            for (const std::uint8_t channel : {rgb.r, rgb.g, rgb.b, std::uint8_t{255}})
                bytes.push_back(static_cast<char>(channel));
        }
        return bytes;
    }
    throw Refusal{404, "there is no such colour map"};
}

std::string answerFrame(Clients& clients, const FrameRequest& request) {
    const auto client = clients.find(request.client);
    if (!client)
        throw Refusal{410, "the client is not known any more"};
    const std::lock_guard lock(client->mutex);
    // Where an answer was lost, what entered and left tells nothing.
    const bool whole = request.seen != client->answers;
    if (whole)
        client->selection.reset();
    client->selection.update(request.camera, request.budget, request.minSize);
    return describe(client->selection, ++client->answers, whole);
}

std::string answerPick(const Model& model, const PickRequest& request) {
    // As large as points are drawn, and where there are none, as large as a fingertip.
    constexpr double exactly = 3.0;
    constexpr double nearly = 16.0;
    const ombrix::core::OctreeQuery query(*model.tree);
    ombrix::core::PickBeam beam = cursorBeam(request.camera, request.u, request.v, exactly);
    beam.clip = request.clip;
    auto result = query.pick(beam, ombrix::core::PickOrder::FRONTMOST);
    if (!result.point) {
        beam = cursorBeam(request.camera, request.u, request.v, nearly);
        beam.clip = request.clip;
        result = query.pick(beam, ombrix::core::PickOrder::CENTRAL);
    }
    return describe(result, model);
}

void addGuards(httplib::Server& server, const std::vector<std::string>& hosts) {
    server.set_default_headers(
        {{"X-Content-Type-Options", "nosniff"},
         {"Cache-Control", "no-store"},
         {"Referrer-Policy", "no-referrer"},
         {"Content-Security-Policy", "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'"}});
    server.set_pre_routing_handler([hosts](const Request& request, Response& response) {
        if (!hosts.empty() && !namesHost(request, hosts))
            refuse(response, 403, "this server is for its own machine");
        // A few bytes of a request could ask for the same bytes of an answer any number of times.
        else if (request.has_header("Range"))
            refuse(response, 400, "parts of answers are not served");
        else
            return httplib::Server::HandlerResponse::Unhandled;
        return httplib::Server::HandlerResponse::Handled;
    });
    server.set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
        refuse(response, 500, "the server failed");
    });
    server.set_error_handler([](const Request&, Response& response) {
        // As `LimitedServer` does.
        response.set_header("Connection", "close");
        if (response.body.empty())
            response.set_content(describeError("the request cannot be answered"), JSON);
    });
}

void addNodeRoutes(httplib::Server& server, const Viewer& viewer) {
    server.Get(R"(/api/nodes/([0-7]{1,22}))", guarded([viewer](const Request& request, Response& response) {
                   const Octree& tree = *viewer.model.tree;
                   response.set_content(encodeNode(tree, nodeOf(tree, request), viewer.model.intensity),
                                        BYTES);
               }));
    server.Get(R"(/api/nodes/([0-7]{1,22})/([a-z]{1,16}))",
               guarded([viewer](const Request& request, Response& response) {
                   const Octree::Node& node = nodeOf(*viewer.model.tree, request);
                   const Field field = fieldOf(request.matches[2].str());
                   if (viewer.fields.request(field) != DerivedFields::State::ready)
                       throw Refusal{409, "the field is not computed yet"};
                   response.set_content(viewer.fields.encode(field, node.key), BYTES);
               }));
    server.Get(R"(/api/fields/([a-z]{1,16}))", guarded([viewer](const Request& request, Response& response) {
                   const Field field = fieldOf(request.matches[1].str());
                   const auto state = viewer.fields.request(field);
                   if (state == DerivedFields::State::failed)
                       throw Refusal{500, "the field could not be computed"};
                   const bool ready = state == DerivedFields::State::ready;
                   response.set_content(describeField(ready, ready ? viewer.fields.range(field) : Range{}),
                                        JSON);
               }));
}

void addClientRoutes(httplib::Server& server, const Viewer& viewer) {
    server.Post("/api/clients", guarded([viewer](const Request&, Response& response) {
                    const std::string name = viewer.clients.open();
                    if (name.empty())
                        throw Refusal{503, "too many pages look at the cloud"};
                    response.set_content(describeClient(name), JSON);
                }));
    server.Post("/api/clients/close", guarded([viewer](const Request& request, Response& response) {
                    viewer.clients.close(parseClientName(request.body));
                    response.status = 204;
                }));
    server.Post("/api/frame", guarded([viewer](const Request& request, Response& response) {
                    response.set_content(answerFrame(viewer.clients, parseFrameRequest(request.body)), JSON);
                }));
    server.Post("/api/pick", guarded([viewer](const Request& request, Response& response) {
                    response.set_content(answerPick(viewer.model, parsePickRequest(request.body)), JSON);
                }));
}

}  // namespace

void addRoutes(httplib::Server& server, const Viewer& viewer) {
    addGuards(server, viewer.hosts);
    for (const auto& [path, file] : viewer.pageFiles)
        server.Get(path, [&file = file](const Request&, Response& response) {
            response.set_content(file.content, file.type);
        });
    server.Get("/api/cloud", [text = describe(viewer.model, viewer.budget)](
                                 const Request&, Response& response) { response.set_content(text, JSON); });
    server.Get(R"(/api/maps/([a-z_]{1,24}))", guarded([](const Request& request, Response& response) {
                   response.set_content(colorsOf(request.matches[1].str()), BYTES);
               }));
    addClientRoutes(server, viewer);
    addNodeRoutes(server, viewer);
}

}  // namespace examples::viewer

#include "support/SharedMemoryEviction.h"

#include <xcb/shm.h>
#include <xcb/xcb.h>
#ifdef TAVELQUISTON_HAS_XCB_RES
#include <xcb/res.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Connection {
    Connection() : c(xcb_connect(nullptr, nullptr)) {}
    ~Connection() { xcb_disconnect(c); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    xcb_connection_t* c;
};

template <typename T>
std::unique_ptr<T, decltype(&std::free)> owned(T* reply) {
    return {reply, &std::free};
}

// Whether a resource type's atom names a shared memory segment ("ShmSeg", as the server calls
// them).
bool isSegmentType(xcb_connection_t* c, xcb_atom_t type) {
    const auto name = owned(xcb_get_atom_name_reply(c, xcb_get_atom_name(c, type), nullptr));
    return name && std::string(xcb_get_atom_name_name(name.get()),
                               size_t(xcb_get_atom_name_name_length(name.get()))) == "ShmSeg";
}

} // namespace

std::string sharedMemoryEvictionMissing() {
#ifdef TAVELQUISTON_HAS_XCB_RES
    return {};
#else
    return "libxcb-res0-dev";
#endif
}

namespace {

SharedMemoryEviction detachSegments(bool largestClientOnly) {
    SharedMemoryEviction result;
#ifdef TAVELQUISTON_HAS_XCB_RES
    Connection connection;
    xcb_connection_t* c = connection.c;
    if (xcb_connection_has_error(c)) {
        result.error = "no X server on DISPLAY";
        return result;
    }
    const auto version =
        owned(xcb_res_query_version_reply(c, xcb_res_query_version(c, 1, 2), nullptr));
    if (!version || (version->server_major == 1 && version->server_minor < 2)) {
        result.error = "the X server has no X-Resource 1.2 extension";
        return result;
    }
    const auto clients = owned(xcb_res_query_clients_reply(c, xcb_res_query_clients(c), nullptr));
    if (!clients) {
        result.error = "the X server did not list its clients";
        return result;
    }
    // Each client's segments (client 0 would be the server itself).
    std::vector<std::vector<uint32_t>> segments;
    std::vector<uint64_t> bytes;
    for (auto client = xcb_res_query_clients_clients_iterator(clients.get()); client.rem;
         xcb_res_client_next(&client)) {
        // Every resource of the client; asking for one type by its atom finds nothing on Xorg.
        const xcb_res_resource_id_spec_t anyResource{0, 0};
        const auto reply = owned(xcb_res_query_resource_bytes_reply(
            c, xcb_res_query_resource_bytes(c, client.data->resource_base, 1, &anyResource),
            nullptr));
        if (!reply)
            continue; // the client left meanwhile
        segments.emplace_back();
        bytes.push_back(0);
        for (auto it = xcb_res_query_resource_bytes_sizes_iterator(reply.get()); it.rem;
             xcb_res_resource_size_value_next(&it)) {
            const auto& [resource, size, references, uses] = it.data->size;
            if (!isSegmentType(c, resource.type))
                continue;
            segments.back().push_back(resource.resource);
            bytes.back() += size;
        }
    }
    const size_t largest = size_t(std::max_element(bytes.begin(), bytes.end()) - bytes.begin());
    for (size_t client = 0; client < segments.size(); ++client) {
        if (largestClientOnly && client != largest)
            continue;
        for (const uint32_t segment : segments[client]) {
            if (auto* error = xcb_request_check(c, xcb_shm_detach_checked(c, segment)))
                std::free(error);
            else
                ++result.detached;
        }
    }
#else
    (void)largestClientOnly;
    result.error = "built without libxcb-res0-dev";
#endif
    return result;
}

} // namespace

SharedMemoryEviction detachEverySharedMemorySegment() {
    return detachSegments(false);
}

SharedMemoryEviction detachLargestClientsSharedMemory() {
    return detachSegments(true);
}

#include "platform/pulse/PulseConnection.h"

#include <stdexcept>

namespace {
void signalLoop(pa_threaded_mainloop* mainloop) {
    pa_threaded_mainloop_signal(mainloop, 0);
}

std::string property(const pa_proplist* properties, const char* key) {
    const char* value = properties ? pa_proplist_gets(properties, key) : nullptr;
    return value ? value : "";
}

PulseConnection::Source describe(const pa_source_info& info) {
    return {info.name ? info.name : "",
            info.description ? info.description : "",
            int(info.sample_spec.rate),
            int(info.sample_spec.channels),
            info.monitor_of_sink != PA_INVALID_INDEX,
            property(info.proplist, "sysfs.path"),
            property(info.proplist, "alsa.card_name")};
}

struct SourceQuery {
    pa_threaded_mainloop* mainloop;
    std::vector<PulseConnection::Source> found;
};

void collectSource(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<SourceQuery*>(userdata);
    if (eol == 0 && info)
        query->found.push_back(describe(*info));
    else
        signalLoop(query->mainloop);
}

struct DefaultsQuery {
    pa_threaded_mainloop* mainloop;
    PulseConnection::ServerDefaults defaults;
};

void collectDefaults(pa_context*, const pa_server_info* info, void* userdata) {
    auto* query = static_cast<DefaultsQuery*>(userdata);
    if (info) {
        query->defaults.sourceName = info->default_source_name ? info->default_source_name : "";
        query->defaults.sinkName = info->default_sink_name ? info->default_sink_name : "";
    }
    signalLoop(query->mainloop);
}
} // namespace

PulseConnection::PulseConnection(const char* clientName) : m_mainloop(pa_threaded_mainloop_new()) {
    if (!m_mainloop)
        throw std::runtime_error("cannot create the sound server's event loop");
    m_context.reset(pa_context_new(pa_threaded_mainloop_get_api(m_mainloop.get()), clientName));
    if (!m_context)
        throw std::runtime_error("cannot create a sound server context");
    pa_context_set_state_callback(
        m_context.get(),
        [](pa_context*, void* loop) { signalLoop(static_cast<pa_threaded_mainloop*>(loop)); },
        m_mainloop.get());
    // A recorder must not start a sound server of its own: without one there is nothing to hear.
    if (pa_context_connect(m_context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        throw std::runtime_error(std::string("no sound server: ") +
                                 pa_strerror(pa_context_errno(m_context.get())));
    pa_threaded_mainloop_lock(m_mainloop.get());
    if (pa_threaded_mainloop_start(m_mainloop.get()) < 0) {
        pa_threaded_mainloop_unlock(m_mainloop.get());
        throw std::runtime_error("cannot start the sound server's event loop");
    }
    pa_context_state_t state = pa_context_get_state(m_context.get());
    while (PA_CONTEXT_IS_GOOD(state) && state != PA_CONTEXT_READY) {
        pa_threaded_mainloop_wait(m_mainloop.get());
        state = pa_context_get_state(m_context.get());
    }
    pa_threaded_mainloop_unlock(m_mainloop.get());
    if (state != PA_CONTEXT_READY) {
        const std::string reason = pa_strerror(pa_context_errno(m_context.get()));
        // The members are released without the destructor: stop the loop before they go.
        pa_threaded_mainloop_stop(m_mainloop.get());
        throw std::runtime_error("no sound server: " + reason);
    }
}

PulseConnection::~PulseConnection() {
    // The loop stops first, so the context is released with nobody else touching it.
    if (m_mainloop)
        pa_threaded_mainloop_stop(m_mainloop.get());
    m_context.reset();
}

bool PulseConnection::isConnected() const {
    PaMainloopLock lock(m_mainloop.get());
    return pa_context_get_state(m_context.get()) == PA_CONTEXT_READY;
}

void PulseConnection::await(pa_operation* operation) {
    if (!operation)
        return;
    PaOperationPtr held(operation);
    while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
        if (pa_context_get_state(m_context.get()) != PA_CONTEXT_READY)
            return; // the server went away; the operation is cancelled with the context
        pa_threaded_mainloop_wait(m_mainloop.get());
    }
}

std::vector<PulseConnection::Source> PulseConnection::sources() {
    PaMainloopLock lock(m_mainloop.get());
    SourceQuery query{m_mainloop.get(), {}};
    await(pa_context_get_source_info_list(m_context.get(), collectSource, &query));
    return query.found;
}

std::optional<PulseConnection::Source> PulseConnection::source(const std::string& name) {
    PaMainloopLock lock(m_mainloop.get());
    SourceQuery query{m_mainloop.get(), {}};
    await(pa_context_get_source_info_by_name(m_context.get(), name.c_str(), collectSource, &query));
    if (query.found.empty())
        return std::nullopt;
    return query.found.front();
}

PulseConnection::ServerDefaults PulseConnection::defaults() {
    PaMainloopLock lock(m_mainloop.get());
    DefaultsQuery query{m_mainloop.get(), {}};
    await(pa_context_get_server_info(m_context.get(), collectDefaults, &query));
    return query.defaults;
}

#include "uplink/nats_sink.h"

#include <memory>

#include <fmt/format.h>

#include "contract/gzip.h"
#include "uplink/topics.h"

namespace uplink {

namespace {

constexpr const char* Stream = "HEATMETER";
constexpr std::int64_t ConnectMilliseconds = 10'000;  // each server
constexpr std::int64_t PingMilliseconds = 60'000;
constexpr std::int64_t WriteMilliseconds = 60'000;
constexpr std::int64_t DuplicateWindow = std::int64_t{120} * 1'000'000'000;  // nanoseconds
constexpr std::size_t EncodingHeader = 24;                                   // bytes: "Content-Encoding: gzip"
constexpr const char* SystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

template <typename Thing, void (*Destroy)(Thing*)>
struct Destroyer {
    void operator()(Thing* thing) const { Destroy(thing); }
};
using Options = std::unique_ptr<natsOptions, Destroyer<natsOptions, ::natsOptions_Destroy>>;
using Connection = std::unique_ptr<natsConnection, Destroyer<natsConnection, ::natsConnection_Destroy>>;
using Context = std::unique_ptr<jsCtx, Destroyer<jsCtx, ::jsCtx_Destroy>>;

std::string text_of(natsStatus status) {
    const char* const more = ::nats_GetLastError(nullptr);
    const std::string text = ::natsStatus_GetText(status);
    const bool is_more = more != nullptr && *more != '\0' && !std::string_view(more).ends_with(text);
    return is_more ? fmt::format("{}: {}", text, more) : text;
}

}  // namespace

struct NatsCallbacks {
    static void closed(natsConnection*, void* me) {
        NatsSink& self = *static_cast<NatsSink*>(me);
        const std::lock_guard lock(self.mutex);
        self.is_closed = true;
        self.changed.notify_one();
    }
    /// Without one the library writes on standard error.
    static void failed(natsConnection*, natsSubscription*, natsStatus, void*) {}

    static void answered(jsCtx*, natsMsg* message, jsPubAck* answer, jsPubAckErr* error, void* me) {
        NatsSink& self = *static_cast<NatsSink*>(me);
        const char* id = nullptr;
        if (::natsMsgHeader_Get(message, "Nats-Msg-Id", &id) == NATS_OK && id != nullptr) {
            const std::lock_guard lock(self.mutex);
            const auto found = self.messages.find(std::string_view(id));
            if (found != self.messages.end()) {
                Event event{.number = found->second};
                self.messages.erase(found);
                if (answer != nullptr && answer->Sequence != 0) {
                    event.what = Event::What::Confirmed;
                    event.sequence = answer->Sequence;
                    event.was_there = answer->Duplicate;
                } else {
                    event.what = Event::What::Refused;
                    const bool has_text = error != nullptr && error->ErrText != nullptr;
                    event.reason = has_text           ? error->ErrText
                                   : error != nullptr ? ::natsStatus_GetText(error->Err)
                                                      : "an answer without a number";
                }
                self.tell(std::move(event));
            }
        }
        ::natsMsg_Destroy(message);
    }
};

NatsSink::NatsSink(const Settings& all_settings, Mailbox& events, std::size_t number, bool is_a_trial)
    : settings(all_settings), mailbox(events), sink_number(number), is_trial(is_a_trial) {
    thread = std::thread([this] { work(); });
}

NatsSink::~NatsSink() {
    {
        const std::lock_guard lock(mutex);
        is_over = true;
    }
    NatsSink::end(false);
    thread.join();
}

std::string NatsSink::record_topic(const std::string& uuid, int system, std::string_view kind) const {
    return record_subject(settings.gateway, uuid, system, kind);
}

void NatsSink::tell(Event event) {
    event.sink = sink_number;
    mailbox.put(std::move(event));
}

void NatsSink::connect() {
    const std::lock_guard lock(mutex);
    is_wanted = true;
    is_ending = is_closed = false;
    changed.notify_one();
}

void NatsSink::end(bool) {
    const std::lock_guard lock(mutex);
    is_ending = true;
    changed.notify_one();
}

void NatsSink::send(std::uint64_t number, Message message) {
    const std::lock_guard lock(mutex);
    to_send.emplace_back(number, std::move(message));
    changed.notify_one();
}

std::string NatsSink::publish(jsCtx* context, std::uint64_t number, const Message& message) {
    {
        const std::lock_guard lock(mutex);
        messages[message.id] = number;
    }
    jsPubOptions options;
    ::jsPubOptions_Init(&options);
    options.MsgId = message.id.c_str();
    options.ExpectStream = Stream;
    const std::string packed = settings.compress ? contract::gzip(message.body) : std::string();
    const bool is_shorter = !packed.empty() && packed.size() + EncodingHeader < message.body.size();
    const std::string& body = is_shorter ? packed : message.body;
    natsMsg* made = nullptr;
    natsStatus status =
        ::natsMsg_Create(&made, message.topic.c_str(), nullptr, body.data(), static_cast<int>(body.size()));
    if (status == NATS_OK && is_shorter) status = ::natsMsgHeader_Set(made, "Content-Encoding", "gzip");
    if (status == NATS_OK) status = ::js_PublishMsgAsync(context, &made, &options);
    ::natsMsg_Destroy(made);
    return status == NATS_OK ? std::string() : text_of(status);
}

/// Finds the stream, or makes it, and remarks that. Empty, or what is wrong.
std::string NatsSink::have_stream(jsCtx* context, std::string& remark) {
    jsStreamInfo* info = nullptr;
    jsErrCode code{};
    natsStatus status = ::js_GetStreamInfo(&info, context, Stream, nullptr, &code);
    if (status == NATS_NOT_FOUND) {
        remark = fmt::format("there is no stream {} yet", Stream);
        if (is_trial) return {};
        remark = fmt::format("made the stream {}: one replica, kept for ever", Stream);
        jsStreamConfig config;
        ::jsStreamConfig_Init(&config);
        const char* subjects[] = {"heatmeter.>"};
        config.Name = Stream;
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        config.Duplicates = DuplicateWindow;
        // Whoever publishes may name any subject for the answer, and so let the stream ask itself.
        config.DenyDelete = config.DenyPurge = true;
        status = ::js_AddStream(&info, context, &config, nullptr, &code);
        if (status != NATS_OK) {  // somebody else was faster
            remark.clear();
            status = ::js_GetStreamInfo(&info, context, Stream, nullptr, &code);
        }
    }
    ::jsStreamInfo_Destroy(info);
    // Who may only publish hears nothing; whether the stream takes it, each answer tells.
    if (status == NATS_OK || status == NATS_TIMEOUT) return {};
    return fmt::format("no stream {}: {}", Stream, text_of(status));
}

std::string NatsSink::hold_stream(natsConnection* connection) {
    jsOptions options;
    ::jsOptions_Init(&options);
    options.PublishAsync.AckHandler = NatsCallbacks::answered;
    options.PublishAsync.AckHandlerClosure = this;
    jsCtx* made = nullptr;
    if (const natsStatus status = ::natsConnection_JetStream(&made, connection, &options); status != NATS_OK) {
        return text_of(status);
    }
    const Context context(made);
    std::string remark;
    if (std::string fault = have_stream(made, remark); !fault.empty()) return fault;
    tell({.what = Event::What::Connected, .reason = remark});
    for (;;) {
        std::vector<std::pair<std::uint64_t, Message>> sending;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return is_ending || is_closed || !to_send.empty(); });
            if (is_ending || is_closed) break;
            std::swap(sending, to_send);
        }
        for (const auto& [number, message] : sending) {
            if (std::string fault = publish(made, number, message); !fault.empty()) return fault;
        }
    }
    const char* last = nullptr;
    const natsStatus status = ::natsConnection_GetLastError(connection, &last);
    if (status == NATS_OK || last == nullptr || *last == '\0') return "the connection is over";
    return fmt::format("{}: {}", ::natsStatus_GetText(status), last);
}

/// From connecting to the end, whose reason it tells.
std::string NatsSink::hold_connection() {
    const Broker& broker = *settings.nats;
    natsOptions* made = nullptr;
    if (::natsOptions_Create(&made) != NATS_OK) return "no memory";
    const Options options(made);
    std::vector<std::string> urls;
    bool has_tls = false;
    for (const Server& server : broker.servers) {
        const bool is_v6 = server.host.find(':') != std::string::npos;
        urls.push_back(fmt::format("{}://{}{}{}:{}", server.tls ? "tls" : "nats", is_v6 ? "[" : "", server.host,
                                   is_v6 ? "]" : "", server.port));
        has_tls = has_tls || server.tls;
    }
    std::vector<const char*> servers;
    servers.reserve(urls.size());
    for (const std::string& url : urls) servers.push_back(url.c_str());
    ::natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size()));
    ::natsOptions_SetName(made, ("heatmeter-uplink " + subject_token(settings.gateway)).c_str());
    ::natsOptions_SetAllowReconnect(made, false);  // what was sent in front of it would come again behind it
    ::natsOptions_SetTimeout(made, ConnectMilliseconds);
    ::natsOptions_SetPingInterval(made, PingMilliseconds);
    ::natsOptions_SetWriteDeadline(made, WriteMilliseconds);
    ::natsOptions_SetClosedCB(made, NatsCallbacks::closed, this);
    // Answers come where no other gateway may listen.
    ::natsOptions_SetCustomInboxPrefix(made, ("_INBOX_" + subject_token(settings.gateway)).c_str());
    ::natsOptions_SetErrorHandler(made, NatsCallbacks::failed, nullptr);
    if (!broker.user.empty()) {
        const auto password = password_of(broker);
        if (!password) return broker.password_file + " cannot be read";
        ::natsOptions_SetUserInfo(made, broker.user.c_str(), password->c_str());
    }
    if (has_tls) {
        natsStatus status = ::natsOptions_SetSecure(made, true);
        const std::string ca = broker.ca.empty() ? SystemAuthorities : broker.ca;
        if (status == NATS_OK) status = ::natsOptions_LoadCATrustedCertificates(made, ca.c_str());
        if (status == NATS_OK && !broker.cert.empty()) {
            status = ::natsOptions_LoadCertificatesChain(made, broker.cert.c_str(), broker.key.c_str());
        }
        if (status != NATS_OK) return "ca, cert or key cannot be used: " + text_of(status);
    }
    natsConnection* connection = nullptr;
    if (const natsStatus status = ::natsConnection_Connect(&connection, made); status != NATS_OK) {
        return fmt::format("{}: {}", urls.front(), text_of(status));
    }
    const Connection own(connection);
    return hold_stream(connection);
}

void NatsSink::work() {
    for (;;) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return is_wanted || is_over; });
            if (is_over) return;
            is_wanted = false;
            to_send.clear();
            messages.clear();
        }
        tell({.what = Event::What::Lost, .reason = hold_connection()});
    }
}

}  // namespace uplink

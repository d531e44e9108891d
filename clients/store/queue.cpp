#include "store/queue.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <utility>

#include <fmt/format.h>

namespace store {

namespace {

constexpr std::int64_t Seconds = 1'000'000'000;  // nanoseconds
constexpr std::int64_t AckWait = 60 * Seconds;   // longer than a transaction takes
constexpr std::int64_t DuplicateWindow = 120 * Seconds;
constexpr std::int64_t MostUnacknowledged = 20'000;  // of all stores together

void check(natsStatus status, std::string_view what) {
    if (status == NATS_OK) return;
    const char* const more = ::nats_GetLastError(nullptr);
    const std::string_view text = ::natsStatus_GetText(status);
    const bool is_more = more != nullptr && *more != '\0' && !std::string_view(more).ends_with(text);
    throw QueueError(fmt::format("{}: {}{}", what, text, is_more ? fmt::format(" ({})", more) : ""));
}

std::string first_line_of(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw QueueError(fmt::format("{}: cannot be read, or is empty", path));
    return line;
}

std::vector<std::string> split(const std::string& urls) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= urls.size();) {
        const std::size_t end = std::min(urls.find(',', begin), urls.size());
        if (end > begin) parts.push_back(urls.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

void set_options(natsOptions* options, const QueueSettings& settings) {
    const std::vector<std::string> urls = split(settings.url);
    std::vector<const char*> servers;
    servers.reserve(urls.size());
    for (const std::string& url : urls) servers.push_back(url.c_str());
    check(::natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size())), "addresses");
    check(::natsOptions_SetName(options, "heatmeter-store"), "name");
    // A lost connection is made anew with all that stands on it: the stream may be another one then.
    check(::natsOptions_SetAllowReconnect(options, false), "options");
    check(::natsOptions_SetTimeout(options, 10'000), "options");
    check(::natsOptions_SetPingInterval(options, 10'000), "options");
    check(::natsOptions_SetMaxPingsOut(options, 2), "options");
    if (!settings.user.empty()) {
        const std::string password = settings.password_file.empty() ? "" : first_line_of(settings.password_file);
        check(::natsOptions_SetUserInfo(options, settings.user.c_str(), password.c_str()), "user");
    }
    if (!settings.ca.empty()) {
        check(::natsOptions_LoadCATrustedCertificates(options, settings.ca.c_str()), settings.ca);
    }
    if (!settings.cert.empty()) {
        check(::natsOptions_LoadCertificatesChain(options, settings.cert.c_str(), settings.key.c_str()), settings.cert);
    }
    if (!settings.ca.empty() || !settings.cert.empty()) check(::natsOptions_SetSecure(options, true), "TLS");
}

}  // namespace

void Delivery::read_sequence() {
    jsMsgMetaData* about = nullptr;
    check(::natsMsg_GetMetaData(&about, message.get()), "a message that is none of the stream");
    sequence_in_stream = static_cast<std::int64_t>(about->Sequence.Stream);
    ::jsMsgMetaData_Destroy(about);
}

std::string_view Delivery::body() const {
    return {::natsMsg_GetData(message.get()), static_cast<std::size_t>(::natsMsg_GetDataLength(message.get()))};
}

std::string Delivery::encoding() const {
    const char* text = nullptr;
    return ::natsMsgHeader_Get(message.get(), "Content-Encoding", &text) == NATS_OK && text != nullptr ? text : "";
}

Queue::Queue(const QueueSettings& settings) : stream(settings.stream), consumer(settings.consumer) {
    natsOptions* options_made = nullptr;
    check(::natsOptions_Create(&options_made), "options");
    const Owned<natsOptions, natsOptions_Destroy> options(options_made);
    set_options(options.get(), settings);
    natsConnection* connected = nullptr;
    check(::natsConnection_Connect(&connected, options.get()), settings.url);
    connection.reset(connected);
    jsCtx* made = nullptr;
    check(::natsConnection_JetStream(&made, connected, nullptr), "JetStream");
    context.reset(made);
    find_stream(settings);
    find_consumer();
}

void Queue::find_stream(const QueueSettings& settings) {
    jsStreamInfo* info = nullptr;
    jsErrCode code{};
    natsStatus status = ::js_GetStreamInfo(&info, context.get(), stream.c_str(), nullptr, &code);
    if (status == NATS_NOT_FOUND) {
        std::array subjects{"heatmeter.>"};
        jsStreamConfig config;
        ::jsStreamConfig_Init(&config);
        config.Name = stream.c_str();
        config.Subjects = subjects.data();
        config.SubjectsLen = static_cast<int>(subjects.size());
        config.Duplicates = DuplicateWindow;
        // A gateway may name any subject for the answer to what it publishes, and so let the stream ask itself.
        config.DenyDelete = config.DenyPurge = true;
        config.Replicas = settings.replicas;
        config.MaxAge = std::int64_t{settings.keep_days} * 86400 * Seconds;
        status = ::js_AddStream(&info, context.get(), &config, nullptr, &code);
        if (code == JSStreamNameExistErr) {  // somebody was faster
            status = ::js_GetStreamInfo(&info, context.get(), stream.c_str(), nullptr, &code);
        }
    }
    check(status, fmt::format("stream {}", stream));
    stream_created = info->Created;
    const std::int64_t keep = std::int64_t{settings.keep_days} * 86400 * Seconds;
    if (info->Config->Replicas < settings.replicas || (keep != 0 && info->Config->MaxAge != keep)) {
        stream_difference = fmt::format("stream {} is used as it is: replicas {}, keeps {} days (0: for ever)", stream,
                                        info->Config->Replicas, info->Config->MaxAge / Seconds / 86400);
    }
    ::jsStreamInfo_Destroy(info);
}

void Queue::check_stream() {
    jsStreamInfo* info = nullptr;
    check(::js_GetStreamInfo(&info, context.get(), stream.c_str(), nullptr, nullptr), fmt::format("stream {}", stream));
    const bool is_same = info->Created == stream_created;
    ::jsStreamInfo_Destroy(info);
    if (!is_same) throw QueueError(fmt::format("stream {} was made anew", stream));
}

void Queue::find_consumer() {
    const std::string what = fmt::format("consumer {}", consumer);
    jsConsumerInfo* info = nullptr;
    natsStatus status = ::js_GetConsumerInfo(&info, context.get(), stream.c_str(), consumer.c_str(), nullptr, nullptr);
    if (status == NATS_NOT_FOUND) {
        jsConsumerConfig config;
        ::jsConsumerConfig_Init(&config);
        config.Durable = consumer.c_str();
        config.AckPolicy = js_AckExplicit;
        config.AckWait = AckWait;
        config.MaxAckPending = MostUnacknowledged;
        status = ::js_AddConsumer(&info, context.get(), stream.c_str(), &config, nullptr, nullptr);
    }
    check(status, what);
    const bool is_fit = info->Config->AckPolicy == js_AckExplicit && info->Config->DeliverSubject == nullptr;
    ::jsConsumerInfo_Destroy(info);
    if (!is_fit) throw QueueError(what + ": is no pull consumer with explicit acknowledgement");
    jsSubOptions options;
    ::jsSubOptions_Init(&options);
    options.Stream = stream.c_str();
    options.Consumer = consumer.c_str();
    natsSubscription* subscribed = nullptr;
    check(::js_PullSubscribe(&subscribed, context.get(), nullptr, consumer.c_str(), nullptr, &options, nullptr), what);
    subscription.reset(subscribed);
    // A dropped message would come again only after its time.
    check(::natsSubscription_SetPendingLimits(subscribed, -1, -1), what);
}

std::vector<Delivery> Queue::fetch(int most, int wait_milliseconds) {
    natsMsgList list{};
    const natsStatus status = ::natsSubscription_Fetch(&list, subscription.get(), most, wait_milliseconds, nullptr);
    if (status == NATS_TIMEOUT) return {};
    check(status, "fetch");
    std::vector<Delivery> deliveries;
    deliveries.reserve(static_cast<std::size_t>(list.Count));
    for (int i = 0; i < list.Count; ++i) deliveries.emplace_back(std::exchange(list.Msgs[i], nullptr));
    ::natsMsgList_Destroy(&list);
    for (Delivery& delivery : deliveries) delivery.read_sequence();
    return deliveries;
}

void Queue::acknowledge(const std::vector<Delivery>& deliveries) {
    for (const Delivery& delivery : deliveries) check(::natsMsg_Ack(delivery.get(), nullptr), "acknowledge");
    check(::natsConnection_FlushTimeout(connection.get(), 10'000), "acknowledge");
}

std::pair<std::int64_t, std::int64_t> Queue::extent() {
    jsStreamInfo* info = nullptr;
    check(::js_GetStreamInfo(&info, context.get(), stream.c_str(), nullptr, nullptr), fmt::format("stream {}", stream));
    const std::pair found(std::max<std::int64_t>(1, static_cast<std::int64_t>(info->State.FirstSeq)),
                          static_cast<std::int64_t>(info->State.LastSeq));
    ::jsStreamInfo_Destroy(info);
    return found;
}

std::optional<Delivery> Queue::message_at(std::int64_t sequence) {
    natsMsg* message = nullptr;
    const auto number = static_cast<std::uint64_t>(sequence);
    const natsStatus status = ::js_GetMsg(&message, context.get(), stream.c_str(), number, nullptr, nullptr);
    if (status == NATS_NOT_FOUND) return std::nullopt;
    check(status, fmt::format("message {}", sequence));
    return Delivery(message, sequence);
}

bool Queue::is_empty() {
    jsConsumerInfo* info = nullptr;
    check(::js_GetConsumerInfo(&info, context.get(), stream.c_str(), consumer.c_str(), nullptr, nullptr), "consumer");
    const bool empty = info->NumPending == 0 && info->NumAckPending == 0;
    ::jsConsumerInfo_Destroy(info);
    return empty;
}

}  // namespace store

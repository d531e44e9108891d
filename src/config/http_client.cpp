#include "config/http_client.h"

#include <string_view>
#include <utility>

#include <curl/curl.h>

namespace Json::Rpc {

namespace {

constexpr long ConnectTimeoutSeconds = 10;
constexpr std::size_t AnswerLimit = 1024 * 1024;

std::size_t take_answer(char* data, std::size_t size, std::size_t count, void* answer) {
    auto& text = *static_cast<std::string*>(answer);
    if (text.size() + size * count > AnswerLimit) return 0;  // ends the transfer
    text.append(data, size * count);
    return size * count;
}

// A connection that is closed in the middle of the head is no error to libcurl, but it is no answer either.
std::size_t watch_head(const char* data, std::size_t size, std::size_t count, void* whole) {
    const std::string_view line(data, size * count);
    auto& head_is_whole = *static_cast<bool*>(whole);
    if (line.starts_with("HTTP/")) head_is_whole = false;
    if (line == "\r\n" || line == "\n") head_is_whole = true;
    return line.size();
}

}  // namespace

struct HttpClient::Connection {
    std::string address;
    long answer_seconds = 0;
    CURL* curl = nullptr;
    curl_slist* headers = nullptr;
    std::string answer;
    bool head_is_whole = false;
    bool answered = false;
};

HttpClient::HttpClient(std::string address, long answer_seconds) : connection(std::make_unique<Connection>()) {
    connection->address = std::move(address);
    connection->answer_seconds = answer_seconds;
    connection->curl = curl_easy_init();
    connection->headers = curl_slist_append(nullptr, "Content-Type: application/json");
}

HttpClient::~HttpClient() {
    curl_slist_free_all(connection->headers);
    curl_easy_cleanup(connection->curl);
}

int HttpClient::Send(const std::string& text) {
    CURL* const curl = connection->curl;
    connection->answer.clear();
    connection->head_is_whole = false;
    connection->answered = false;
    if (curl == nullptr) return -1;

    curl_easy_setopt(curl, CURLOPT_URL, connection->address.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, ConnectTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, connection->answer_seconds);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, connection->headers);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(text.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, text.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_answer);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &connection->answer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, watch_head);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &connection->head_is_whole);
    connection->answered = curl_easy_perform(curl) == CURLE_OK && connection->head_is_whole;
    if (connection->answered) return 0;

    // What failed before the whole text was delivered is a failed Send; what failed after it, a failed Recv.
    curl_off_t delivered = 0;
    curl_easy_getinfo(curl, CURLINFO_SIZE_UPLOAD_T, &delivered);
    return delivered < static_cast<curl_off_t>(text.size()) || delivered == 0 ? -1 : 0;
}

int HttpClient::Recv(std::string& text) {
    if (!connection->answered) return -1;
    text = connection->answer;
    return 0;
}

}  // namespace Json::Rpc

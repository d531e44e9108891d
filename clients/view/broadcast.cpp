#include "view/broadcast.h"

namespace view {

void Broadcast::tell(std::string_view event, std::string_view data) {
    std::string& message = messages.emplace_back("event: ");
    message.append(event).append("\ndata: ").append(data).append("\n\n");
    bytes += message.size();
    while (bytes > MostBytes && messages.size() > 1) {
        bytes -= messages.front().size();
        messages.pop_front();
        ++first;
    }
}

std::string_view Broadcast::take(Place& place, std::size_t most) const {
    if (has_lost(place) || !has_news(place)) return {};
    const std::string_view message = messages[static_cast<std::size_t>(place.message - first)];
    const std::string_view piece = message.substr(place.at, most);
    place.at += piece.size();
    if (place.at == message.size()) place = {place.message + 1, 0};
    return piece;
}

}  // namespace view

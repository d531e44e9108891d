#pragma once
// An answer as libmicrohttpd sends it.

#include <microhttpd.h>

#include "view/answer.h"
#include "view/guests.h"

namespace view {

/// With the headers that every answer has: nothing of the page may be framed, guessed or loaded from elsewhere. Bytes
/// that are sent are counted for the guest, who outlives the response. Null when there is no memory.
MHD_Response* response_of(Answer answer, Guest& guest);
/// The same headers for another response.
void add_safety(MHD_Response* response);

}  // namespace view

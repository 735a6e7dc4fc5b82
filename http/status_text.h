// Reason phrases of status lines.
#pragma once

namespace zorhtml {

// The phrase of `status`; "Error" for a status outside the table.
const char* statusText(int status);

}  // namespace zorhtml

// The sponsor identifier that the terminal's security module holds.
#pragma once

#include <string>

// Both texts are empty when there is no sponsor.
struct Sponsor {
  std::string number;  // six digits or more
  std::string name;
};

// Looks the sponsor up in the security module's diagnostic records. What was found once is kept for the life of the
// process; a lookup that found nothing is made again. Any thread; blocks while another thread is looking.
[[nodiscard]] Sponsor lookUpSponsor();

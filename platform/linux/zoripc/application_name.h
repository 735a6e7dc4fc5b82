// How applications are called on the bus.
#pragma once

#include <string>

namespace zoripc {

// The bus name of the application `id`: "zoripc.App.a" and the id, every byte outside A-Za-z0-9 written as "_" and two
// lower-case hexadecimal digits: "_mac" is "zoripc.App.a_5fmac".
[[nodiscard]] std::string busNameOf(const std::string& id);

}  // namespace zoripc

// Requests to a server on this machine, byte for byte.
#pragma once

#include <string>

// All that comes to the connection's end. Closes `fd`.
std::string readAll(int fd);

// What the server at 127.0.0.1:`port` answers to `request`, to the end of the connection.
std::string answerOf(int port, const std::string& request);

// Where browsers reach the upload server.
#pragma once

constexpr int httpPort = 6370;  // TCP

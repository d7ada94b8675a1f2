#pragma once

/// Which transfer a client or a session is running.
constexpr int PROCESS_TYPE_NONE = 0;
constexpr int PROCESS_TYPE_CLIENT_UPDATA = 1;    ///< upload, client to server
constexpr int PROCESS_TYPE_CLIENT_DOWNDATA = 2;  ///< download, server to client

#pragma once

#include <cstdint>
#include <string>

#include "net/LinkEvents.h"

/// The messages between client and server. A request is answered, where it is
/// answered at all, by a message of the same code; 2503, 2506, 2507 and 2508
/// come from the server unasked. Bodies: docs/protocol.md.

constexpr int NET_CTS_PREPARETRAN_FILE = 2500;        ///< announce a file to receive
constexpr int NET_CTS_TRANSFILEDATA = 2501;           ///< upload data
constexpr int NET_CTS_TRANSFILEDATA_END = 2502;       ///< end of an uploaded file
constexpr int NET_CTS_TRANS_STOP = 2503;              ///< stop a download
constexpr int NET_CTS_REQUEST_SERVERFILESIZE = 2504;  ///< total size of a list of files
constexpr int NET_CTS_PREPARETRANS_FILE = 2505;       ///< ask for a file
constexpr int NET_STC_TRANSFILEDATA = 2506;           ///< download data
constexpr int NET_STC_TRANSFILEDATA_END = 2507;       ///< end of a downloaded file
constexpr int NET_STC_WRITEDATA_ERROR = 2508;         ///< upload data could not be stored
constexpr int NET_CTS_GETLOSTINFO = 2509;             ///< ask for missing ranges
constexpr int NET_CTS_CHANGELOSTINFO = 2510;          ///< report a resent range
constexpr int NET_CTS_GETPRJDIR = 2511;               ///< ask for the project directory
constexpr int NET_CTS_GETPRJLIST = 2512;              ///< ask for the list of projects
constexpr int NET_CTS_DELETEPRJ = 2513;               ///< delete a project
constexpr int NET_CTS_GETPRJFILELIST = 2514;          ///< ask for the files of a project

/// Names of channel lists in project files; kept for hosts, read by nothing here.
const std::string kMultiChannel = "MultiChannel";
const std::string kGroupChannelManage = "GroupChannelManage";

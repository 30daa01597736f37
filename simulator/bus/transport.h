// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/protocol.h"
#include "files/descriptor.h"

#include <string>

namespace sim {

/// Requests and replies over a stream socket between processes of one machine. All return false
/// when the other end is gone or talks nonsense.
bool send_request(int socket, const Request& request);
bool receive_request(int socket, Request& request);
/// `passed_fd` is handed over with it unless -1.
bool send_reply(int socket, const Reply& reply, int passed_fd = -1);
/// `passed`: takes the descriptor that comes with it, if there is one.
bool receive_reply(int socket, Reply& reply, files::Descriptor* passed = nullptr);

/// Made by the client library in whatever program loads it.
std::string loaded_mark(const std::string& bed_folder);
/// Made when that process becomes a program without it.
std::string blind_mark(const std::string& bed_folder, pid_t process);

/// Where the server of a bed listens.
std::string socket_path(const std::string& bed_folder);

/// While the lock lives, nobody else opens or names an event socket of that bed, in whatever
/// process. Without the bed's folder it locks nothing.
files::Descriptor lock_events(const std::string& bed);

} // namespace sim

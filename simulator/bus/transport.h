// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/protocol.h"

#include <string>

namespace sim {

/// Requests and replies over a stream socket between processes of one machine. All return false
/// when the other end is gone or talks nonsense.
bool send_request(int socket, const Request& request);
bool receive_request(int socket, Request& request);
/// `passed_fd` is handed over with it unless -1.
bool send_reply(int socket, const Reply& reply, int passed_fd = -1);
bool receive_reply(int socket, Reply& reply);
/// Takes the descriptor that comes with it; -1 when there is none.
bool receive_reply(int socket, Reply& reply, int& passed_fd);

/// Where the server of a bed listens.
std::string socket_path(const std::string& bed_folder);
/// Connects or listens there; -1 and errno on failure.
int connect_socket(const std::string& path);
int listen_socket(const std::string& path);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
#pragma once
static constexpr char kUnit[] =
    "TCamXuCstm_SecuGen.cpp"; // static, never inline: it differs per unit

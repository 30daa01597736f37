// SPDX-License-Identifier: Apache-2.0
#pragma once
static constexpr char kUnit[] = "NYXuCtrl.cpp"; // static, never inline: it differs per unit

// SPDX-License-Identifier: Apache-2.0
// Compiled by a test, which looks for the warnings.
#include <nyxus/nyxus.hpp>

void ignore(nyxus::Camera& camera)
{
    camera.set_flip(true);
    camera.flip();
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio> // jpeglib.h needs it

#include <jpeglib.h>
#include <csetjmp>

namespace jpeg {

/// libjpeg ends the program on a broken file unless it is led elsewhere: to
/// `setjmp(errors.broken)`. Nothing on the way may need a destructor.
struct Errors {
    jpeg_error_mgr manager; ///< first: libjpeg knows it only
    std::jmp_buf broken;
};

[[noreturn]] inline void jump_away(j_common_ptr codec)
{
    std::longjmp(reinterpret_cast<Errors*>(codec->err)->broken, 1);
}

/// For the codec's `err`; it prints nothing.
inline jpeg_error_mgr* jumping(Errors& errors)
{
    jpeg_std_error(&errors.manager);
    errors.manager.error_exit = jump_away;
    errors.manager.output_message = [](j_common_ptr) {};
    return &errors.manager;
}

} // namespace jpeg

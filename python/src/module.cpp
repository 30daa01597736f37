// SPDX-License-Identifier: Apache-2.0
// The module nyxus._nyxus. Its manual is nyxus/_nyxus.pyi.
#include "camera.h"

PYBIND11_MODULE(_nyxus, module)
{
    using namespace nyxus::python;
    add_words(module);
    add_work(module);
    add_images(module);
    CameraClass camera = add_cameras(module);
    add_backups(module);
    add_features(module, camera);
    add_rom(module, camera);
    add_batch(module);
    add_video(module, camera);
}

// SPDX-License-Identifier: Apache-2.0
#include "worker.h"

int main(int argc, char** argv)
{
    return nyxus::engine::worker_main(argc, argv);
}

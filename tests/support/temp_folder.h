/**
 * A folder of its own for each test or benchmark.
 */
#ifndef TESTS_SUPPORT_TEMP_FOLDER_H
#define TESTS_SUPPORT_TEMP_FOLDER_H

#include "tools/temp_folder.h"

namespace test {

using tools::TempFolder;

}  // namespace test

#endif

/**
 * The raw command that takes a whole configuration file. Its first lines are put
 * in front, so that the fuzzer gets to the rest.
 */
#include "fuzz/support.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = fuzz::text_of(data, size);
    fuzz::device();
    fuzz::command("cloud/2", text);
    fuzz::command(
        "cloud/2",
        "#The word of \"Default\" must not be removed\nDefault\nap.apname=ZX-A5V1.0\n" + text);
    fuzz::command("dev/2");
    return 0;
}

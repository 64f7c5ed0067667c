/**
 * The raw command that takes a whole configuration file. Its first lines are put
 * in front, so that the fuzzer gets to the rest.
 */
#include "fuzz/support.h"
#include "virtual/ap/vap.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::device();
    const std::string text = fuzz::text_of(data, size);
    vap::config_set("ap.apname", "ZX-A5V1.0");
    fuzz::command("cloud", 2, text);
    fuzz::command(
        "cloud", 2,
        "#The word of \"Default\" must not be removed\nDefault\nap.apname=ZX-A5V1.0\n" + text);
    return 0;
}

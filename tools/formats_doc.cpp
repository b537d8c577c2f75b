// kelvane-formats-doc: writes docs/formats.md, or the file named, from the format table.
#include "formats/table/formats_doc.h"

#include <cstdio>

#include "base/byte_sink.h"
#include "formats/table/format_table_rows.h"

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fputs("usage: kelvane-formats-doc [FILE]\n", stderr);
        return 2;
    }
    const char* target = argc == 2 ? argv[1] : "docs/formats.md";
    const auto file = kv::SaveFile::create(target);
    const std::string text = kv::formatsDocument(kv::formatRows());
    if (file && file->write(kv::bytesOf(text)) && file->commit()) return 0;
    std::fprintf(stderr, "kelvane-formats-doc: could not write %s\n", target);
    return 1;
}

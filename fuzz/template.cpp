// A template project, which may come from anywhere: read, written, and read again.

#include "fuzz/target.h"
#include "stitching/projectxml.h"

#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const TemplateFile file = {QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)), {}};
    const ProjectTemplate read = parseTemplate(file);
    HOLDS(read.document.isNull() == !read.problem.isEmpty());
    QByteArray written;
    try {
        written = toXml(read.document);
        static_cast<void>(toPanoXml(read.document.documentElement()));
    } catch (const std::runtime_error &) {
        return 0;
    }
    HOLDS(read.document.isNull() == written.isEmpty());
    // What is written is read as the same document again.
    if (!read.document.isNull())
        HOLDS(toXml(parseTemplate({written, {}}).document) == written);
    return 0;
}

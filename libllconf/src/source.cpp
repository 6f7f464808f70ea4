#include <cstdlib>
#include <cstring>

#include "llconf/nodes.h"
#include "node_record.h"
#include "ucfgd/owners.h"

cnf_source *create_source(const cnf_parser *parser, const cnfnode *options, char *text,
                          size_t length) {
    owned_str owner{text};
    owned<cnfnode, destroy_cnftree> copy;
    if (options != nullptr) {
        copy.reset(clone_cnftree(options));
        if (!copy) return nullptr;
    }
    auto *source = static_cast<cnf_source *>(std::calloc(1, sizeof(cnf_source)));
    if (source == nullptr) return nullptr;
    static uint64_t last_number = 0;
    source->references = 1;
    source->number = ++last_number;
    source->parser = parser;
    source->options = copy.release();
    source->text = owner.release();
    source->length = static_cast<uint32_t>(length);
    const void *end = length > 0 ? std::memchr(text, '\n', length) : nullptr;
    source->crlf = end != nullptr && end != text && static_cast<const char *>(end)[-1] == '\r';
    source->no_final_newline = length > 0 && text[length - 1] != '\n';
    return source;
}

void source_release(cnf_source *source) {
    if (source == nullptr || --source->references > 0) return;
    destroy_cnftree(source->options);
    std::free(source->text);
    std::free(source);
}

cnf_source *cnfnode_hold_source(const cnfnode *node) {
    const source_text *text = node != nullptr ? record(node)->text() : nullptr;
    if (text == nullptr || text->source == nullptr) return nullptr;
    text->source->references++;
    return text->source;
}

const char *cnf_source_text(const cnf_source *source, size_t *length) {
    *length = source->length;
    return source->text != nullptr ? source->text : "";
}

void cnf_release_source(cnf_source *source) {
    source_release(source);
}

// Fuzzes the parser of the git browser's feeds, against a second writing of it.
#include "kernel_checker.cpp"

#include "changelog_properties.h"
#include "models.h"

namespace {

constexpr size_t NOWHERE = std::string::npos;

std::string model_tag_value(const std::string& block, const std::string& tag) {
    const std::string open = "<" + tag + ">";
    const std::string close = "</" + tag + ">";
    const size_t at = model::find(block, open, 0);
    if (at == NOWHERE) return "";
    const size_t begin = at + open.size();
    const size_t end = model::find(block, close, begin);
    if (end == NOWHERE) return "";
    return model::xml_unescape(block.substr(begin, end - begin));
}

ChangeEntry model_entry(const std::string& block) {
    ChangeEntry ce;
    ce.subject = model_tag_value(block, "title");
    ce.author = model_tag_value(block, "name");
    const std::string mail = model_tag_value(block, "email");
    if (mail != "") ce.author += " <" + mail + ">";
    ce.date = model_tag_value(block, "updated");

    std::string id = model_tag_value(block, "id");
    while (model::find(id, ":", 0) != NOWHERE) id = id.substr(model::find(id, ":", 0) + 1);
    ce.id = id.size() > 12 ? id.substr(0, 12) : id;

    const size_t content = model::find(block, "<content", 0);
    if (content != NOWHERE) {
        const size_t opened = model::find(block, ">", content);
        const size_t closed = opened == NOWHERE ? NOWHERE : model::find(block, "</content>", opened);
        if (closed != NOWHERE) {
            ce.body = model::trim_right(model::xml_unescape(block.substr(opened + 1, closed - opened - 1)));
        }
    }
    if (!ce.body.empty()) {
        const size_t feed = model::find(ce.body, "\n", 0);
        const std::string first = feed == NOWHERE ? ce.body : ce.body.substr(0, feed);
        if (first == ce.subject) ce.body = feed == NOWHERE ? "" : ce.body.substr(feed + 1);
        while (!ce.body.empty() && ce.body.front() == '\n') ce.body.erase(0, 1);
    }
    return ce;
}

void model_atom_feed(const std::string& xml, ChangeLog& out) {
    size_t pos = 0;
    while (true) {
        const size_t open = model::find(xml, "<entry>", pos);
        if (open == NOWHERE) break;
        const size_t close = model::find(xml, "</entry>", open);
        if (close == NOWHERE) break;
        const ChangeEntry ce = model_entry(xml.substr(open, close - open));
        pos = close + 8;
        out.total_found += 1;
        if (out.entries.size() < 400) out.entries.push_back(ce);
    }
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string xml(data, data + size);
    require_parser_holds(parse_atom_feed, model_atom_feed, xml, false);
    return 0;
}

#include "tools/topology/yaml_tree.h"

#include <map>
#include <sstream>
#include <utility>

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

namespace topology {

namespace {

/// Ten thousand switches with five cables each and settings of their own need less.
constexpr size_t WORDS_MAX = 1'000'000;

place_in_file_t place_of(const YAML::Mark &mark)
{
    return mark.is_null()
               ? place_in_file_t{1, 1}
               : place_in_file_t{static_cast<unsigned>(mark.line) + 1, static_cast<unsigned>(mark.column) + 1};
}

size_t words_of(const yaml_t &node)
{
    size_t words = 1;
    for (const yaml_t &item : node.items)
        words += words_of(item);
    return words;
}

class builder_t : public YAML::EventHandler {
public:
    yaml_t root;

    void OnDocumentStart(const YAML::Mark &mark) override
    {
        if (std::exchange(begun_, true))
            throw yaml_fault_t(place_of(mark), "a second document begins here: write one only");
        root.place = place_of(mark);
    }
    void OnDocumentEnd() override {}

    void OnNull(const YAML::Mark &mark, YAML::anchor_t anchor) override { leaf(mark, anchor, {}); }
    void OnScalar(const YAML::Mark &mark, const std::string &tag, YAML::anchor_t anchor,
                  const std::string &value) override
    {
        leaf(mark, anchor, {.kind = yaml_t::kind_t::SCALAR, .text = value, .plain = tag == "?", .items = {}});
    }
    void OnAlias(const YAML::Mark &mark, YAML::anchor_t anchor) override
    {
        const auto meant = anchors_.find(anchor);
        if (meant == anchors_.end())
            throw yaml_fault_t(place_of(mark), "an alias stands within what it means");
        count(place_of(mark), words_of(meant->second));
        add(meant->second);
    }

    void OnSequenceStart(const YAML::Mark &mark, const std::string &, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value) override
    {
        open(mark, anchor, yaml_t::kind_t::LIST);
    }
    void OnMapStart(const YAML::Mark &mark, const std::string &, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value) override
    {
        open(mark, anchor, yaml_t::kind_t::MAP);
    }
    void OnSequenceEnd() override { close(); }
    void OnMapEnd() override { close(); }

private:
    void count(place_in_file_t place, size_t words)
    {
        words_ += words;
        if (words_ > WORDS_MAX)
            throw yaml_fault_t(place, "from here on the file is too large, aliases counted as what they mean");
    }

    void leaf(const YAML::Mark &mark, YAML::anchor_t anchor, yaml_t node)
    {
        node.place = place_of(mark);
        count(node.place, 1);
        finish(anchor, std::move(node));
    }

    void open(const YAML::Mark &mark, YAML::anchor_t anchor, yaml_t::kind_t kind)
    {
        count(place_of(mark), 1);
        open_.push_back({{.kind = kind, .place = place_of(mark), .text = {}, .items = {}}, anchor});
    }

    void close()
    {
        auto [node, anchor] = std::move(open_.back());
        open_.pop_back();
        finish(anchor, std::move(node));
    }

    void finish(YAML::anchor_t anchor, yaml_t node)
    {
        if (anchor) {
            count(node.place, words_of(node)); // it is kept a second time
            anchors_[anchor] = node;
        }
        add(std::move(node));
    }

    void add(yaml_t node)
    {
        if (open_.empty())
            root = std::move(node);
        else
            open_.back().first.items.push_back(std::move(node));
    }

    bool begun_ = false;
    size_t words_ = 0;
    std::vector<std::pair<yaml_t, YAML::anchor_t>> open_;
    std::map<YAML::anchor_t, yaml_t> anchors_;
};

} // namespace

yaml_t parse_yaml(const std::string &text)
{
    builder_t builder;
    try {
        std::istringstream stream(text);
        YAML::Parser parser(stream);
        while (parser.HandleNextDocument(builder)) {
        }
    } catch (const YAML::ParserException &error) {
        throw yaml_fault_t(place_of(error.mark), error.msg);
    }
    return std::move(builder.root);
}

} // namespace topology

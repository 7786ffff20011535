#include "padding.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rixgwsim {

namespace {

constexpr std::size_t kLongestFillerValue = 10000;
constexpr std::size_t kLongestFillerId = 1000;
constexpr std::size_t kCorrections = 16;

class Padder
{
public:
    Padder(ReplyKind replyKind, std::vector<Response> &reply, const StreamStyle &replyStyle, std::size_t size)
        : kind(replyKind), responses(reply), style(replyStyle), target(size)
    {
    }

    void pad()
    {
        while (replySize() > target)
            if (!dropLastItem())
                throw std::runtime_error("the smallest such reply has " + std::to_string(replySize()) + " bytes");
        do
            if (fill()) return;
        while (dropLastItem());
        throw std::runtime_error("no number of items makes exactly so many bytes");
    }

private:
    std::size_t replySize() const { return callDataSize(kind, responses, style); }

    bool dropLastItem()
    {
        for (auto response = responses.rbegin(); response != responses.rend(); ++response)
            if (!response->items.empty()) {
                response->items.pop_back();
                return true;
            }
        return false;
    }

    // Long fillers as far as they go, then one that is as long as is left. Where a longer block needs a longer head
    // some sizes are skipped; a short filler put before the last one moves it past such a gap.
    bool fill()
    {
        if (replySize() == target) return true;
        const auto succeeded = std::find_if(responses.rbegin(), responses.rend(),
                                            [](const Response &response) { return response.code >= 0; });
        if (succeeded == responses.rend()) return false;
        std::vector<Item> &items = succeeded->items;
        const std::size_t before = items.size();
        addLongFillers(items);
        for (std::size_t correction = 0; correction <= kCorrections; ++correction) {
            const std::size_t kept = items.size();
            if (correction != 0) items.push_back(filler(items.size(), correction));
            items.push_back(filler(items.size(), shortest()));
            if (lengthenLast(items)) return true;
            items.resize(kept);
        }
        items.resize(before);
        return false;
    }

    // Leaves room for between two and about three more.
    void addLongFillers(std::vector<Item> &items) const
    {
        const std::size_t each = longFillerSize();
        for (;;) {
            const std::size_t fit = (target - replySize()) / each;
            if (fit <= 2) return;
            for (std::size_t i = 2; i < fit; ++i)
                items.push_back(filler(items.size(), longest()));
        }
    }

    std::size_t longFillerSize() const
    {
        constexpr std::size_t kSlack = 16; // blocks may fall otherwise, numbers grow longer
        const Item item = filler(0, longest());
        const std::vector<Response> one = {{{}, 0, {item}}};
        const std::vector<Response> two = {{{}, 0, {item, item}}};
        return callDataSize(kind, two, style) - callDataSize(kind, one, style) + kSlack;
    }

    bool lengthenLast(std::vector<Item> &items) const
    {
        std::size_t low = shortest();
        std::size_t high = 4 * longest();
        while (low < high) {
            const std::size_t middle = (low + high) / 2;
            items.back() = filler(items.size() - 1, middle);
            if (replySize() < target)
                low = middle + 1;
            else
                high = middle;
        }
        items.back() = filler(items.size() - 1, low);
        return replySize() == target;
    }

    std::size_t longest() const { return kind == ReplyKind::statistics ? kLongestFillerValue : kLongestFillerId; }
    std::size_t shortest() const { return kind == ReplyKind::statistics ? 0 : 1; }

    Item filler(std::size_t number, std::size_t length) const
    {
        std::string text = "Filler_" + std::to_string(number + 1);
        if (kind == ReplyKind::statistics) return {text, pattern(length)};
        if (text.size() < length) text += "_" + pattern(length);
        return {text.substr(0, length), {}};
    }

    // Neighbouring bytes differ, so that a lost or doubled one shows.
    static std::string pattern(std::size_t length)
    {
        constexpr std::string_view kPattern = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
        std::string text(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = kPattern[i % kPattern.size()];
        return text;
    }

    const ReplyKind kind;
    std::vector<Response> &responses;
    const StreamStyle &style;
    const std::size_t target;
};

} // namespace

void padReply(ReplyKind kind, std::vector<Response> &responses, const StreamStyle &style, std::size_t size)
{
    Padder(kind, responses, style, size).pad();
}

} // namespace rixgwsim

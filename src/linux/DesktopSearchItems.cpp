#include "linux/DesktopSearchItems.h"

#include <string.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <tuple>
#include <utility>

#include "frame/Text.h"

namespace sonra {
namespace {

/// Nobody types more; each word costs a pass over all items.
constexpr std::size_t mostWords = 12;
constexpr std::size_t fewestBytes = 2;

// What a word's best place in an item is worth.
constexpr double wholeWordInHead = 1.0;
constexpr double wordStartInHead = 0.8;
constexpr double insideHead = 0.6;
constexpr double wordStartInDescription = 0.4;
constexpr double insideDescription = 0.3;

bool isWordByte(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= 0x80 || (value >= '0' && value <= '9') || (value >= 'a' && value <= 'z');
}

std::size_t placeOf(std::string_view text, std::string_view word, std::size_t from) {
    const auto* const found =
        memmem(text.data() + from, text.size() - from, word.data(), word.size());
    return found == nullptr
               ? std::string_view::npos
               : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

double worth(std::string_view text, std::size_t head, std::size_t at, std::size_t length) {
    const bool begins = at == 0 || !isWordByte(text[at - 1]);
    const bool ends = at + length == text.size() || !isWordByte(text[at + length]);
    if (at >= head) return begins ? wordStartInDescription : insideDescription;
    if (!begins) return insideHead;
    return ends ? wholeWordInHead : wordStartInHead;
}

/// Of the best place where the word stands; zero if there is none.
double worthOf(std::string_view word, std::string_view text, std::size_t head) {
    double best = 0;
    for (auto at = placeOf(text, word, 0); at != std::string_view::npos;
         at = placeOf(text, word, at + 1)) {
        // Nothing better comes behind a hit in the description that begins a word.
        best = std::max(best, worth(text, head, at, word.size()));
        if (best == wholeWordInHead || (at >= head && best >= wordStartInDescription)) break;
    }
    return best;
}

std::vector<std::string> wordsOf(const std::vector<std::string>& terms) {
    std::vector<std::string> words;
    for (const auto& term : terms) {
        std::istringstream parts(text::lowered(term));
        std::copy(std::istream_iterator<std::string>(parts), {}, std::back_inserter(words));
    }
    if (words.size() > mostWords) words.resize(mostWords);
    return words;
}

std::string joined(const std::vector<std::string>& words) {
    std::string phrase;
    for (const auto& word : words) phrase += (phrase.empty() ? "" : " ") + word;
    return phrase;
}

}  // namespace

DesktopSearchItems::Shared DesktopSearchItems::prepared(SearchableItem item) {
    auto entry = std::make_shared<Entry>();
    std::string head = item.title;
    for (const auto& keyword : item.keywords) head += "\n" + keyword;
    entry->text = text::lowered(head + "\n");
    entry->head = entry->text.size();
    entry->text += text::lowered(item.contentDescription);
    entry->item = std::move(item);
    return entry;
}

void DesktopSearchItems::indexSearchableItems(std::vector<SearchableItem> items,
                                              Completion completion) {
    std::optional<std::string> error;
    std::vector<Shared> fresh;
    for (auto& item : items) {
        if (item.uniqueIdentifier.empty())
            error = "an item has no identifier";
        else
            fresh.push_back(prepared(std::move(item)));
    }
    {
        const MutexLock lock(mutex_);
        for (auto& entry : fresh) {
            const auto& identifier = entry->item.uniqueIdentifier;
            entries_[identifier] = std::move(entry);
        }
    }
    complete(std::move(completion), std::move(error));
}

void DesktopSearchItems::deleteSearchableItems(const std::vector<std::string>& identifiers,
                                               Completion completion) {
    {
        const MutexLock lock(mutex_);
        for (const auto& identifier : identifiers) entries_.erase(identifier);
    }
    complete(std::move(completion));
}

void DesktopSearchItems::deleteSearchableItemsInDomains(const std::vector<std::string>& domains,
                                                        Completion completion) {
    {
        const MutexLock lock(mutex_);
        std::erase_if(entries_, [&domains](const auto& entry) {
            return std::ranges::count(domains, entry.second->item.domainIdentifier) > 0;
        });
    }
    complete(std::move(completion));
}

void DesktopSearchItems::deleteAllSearchableItems(Completion completion) {
    {
        const MutexLock lock(mutex_);
        entries_.clear();
    }
    complete(std::move(completion));
}

void DesktopSearchItems::complete(Completion completion, std::optional<std::string> error) {
    if (!completion) return;
    loop_.post(
        [completion = std::move(completion), error = std::move(error)] { completion(error); });
}

double DesktopSearchItems::relevance(const Entry& entry, const std::vector<std::string>& words,
                                     const std::string& phrase) {
    double sum = 0;
    for (const auto& word : words) {
        const auto value = worthOf(word, entry.text, entry.head);
        if (value == 0) return 0;
        sum += value;
    }
    const auto mean = sum / static_cast<double>(words.size());
    const bool together = words.size() == 1 || placeOf(entry.text, phrase, 0) < entry.text.size();
    return together ? mean : mean / 2;
}

std::vector<DesktopSearchItems::Match> DesktopSearchItems::search(
    const std::vector<std::string>& terms, std::size_t limit) const {
    const auto words = wordsOf(terms);
    const auto phrase = joined(words);
    if (phrase.size() < fewestBytes) return {};
    std::vector<std::pair<double, Shared>> found;
    {
        const MutexLock lock(mutex_);
        for (const auto& [identifier, entry] : entries_)
            if (const auto value = relevance(*entry, words, phrase); value > 0)
                found.emplace_back(value, entry);
    }
    const auto count = std::min(limit, found.size());
    std::ranges::partial_sort(found, found.begin() + static_cast<std::ptrdiff_t>(count), {},
                              [](const auto& match) {
                                  const auto& item = match.second->item;
                                  return std::tuple(-match.first, -item.contentModificationDate,
                                                    std::string_view(item.uniqueIdentifier));
                              });
    std::vector<Match> matches;
    matches.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        matches.push_back({found[i].second->item, found[i].first});
    return matches;
}

std::optional<SearchableItem> DesktopSearchItems::item(const std::string& identifier) const {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(identifier);
    if (found == entries_.end()) return std::nullopt;
    return found->second->item;
}

}  // namespace sonra

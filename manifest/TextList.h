// A list of texts in two blocks of memory.
//
// A live manifest names every segment of two hours in every quality, some fifty thousand texts a reload, once a second
// or two. As strings of their own each would cost an allocation, and together they would take about twice the memory.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kvmpd {

class TextList {
  public:
    TextList() = default;
    TextList(std::initializer_list<std::string_view> texts) {
        for (const std::string_view text : texts) {
            push_back(text);
        }
    }

    size_t size() const { return m_ends.size(); }
    bool empty() const { return m_ends.empty(); }

    void push_back(std::string_view text) {
        m_text.append(text);
        m_ends.push_back(m_text.size());
    }

    /// The text at `index`, which must be below size(). Valid until the list is changed.
    std::string_view operator[](size_t index) const {
        const size_t begin = index == 0 ? 0 : m_ends[index - 1];
        return std::string_view(m_text).substr(begin, m_ends[index] - begin);
    }

    /// Gives back the memory that the list grew into and does not use.
    void shrink_to_fit() {
        m_text.shrink_to_fit();
        m_ends.shrink_to_fit();
    }

    bool operator==(const TextList&) const = default;

  private:
    std::string m_text;          ///< All texts, one behind the other.
    std::vector<size_t> m_ends;  ///< Where each ends in m_text.
};

}  // namespace kvmpd

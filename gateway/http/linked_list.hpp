// SPDX-License-Identifier: MIT
// A list through elements that live elsewhere, so that an element is moved and removed without a search
// and without memory of its own.
#pragma once

template <class Element>
struct list_links_s {
    Element* before = nullptr;
    Element* after = nullptr;
    bool isIn = false;  // in the list
};

// `links` is the member of an element that belongs to this list; an element may be in several lists.
template <class Element, list_links_s<Element> Element::*links>
class linked_list_c {
  public:
    Element* front() const { return first; }
    static Element* next(const Element* element) { return (element->*links).after; }
    static bool has(const Element* element) { return (element->*links).isIn; }

    void pushBack(Element* element) {
        (element->*links) = {last, nullptr, true};
        (last != nullptr ? (last->*links).after : first) = element;
        last = element;
    }

    void remove(Element* element) {
        const list_links_s<Element> own = element->*links;
        (own.before != nullptr ? (own.before->*links).after : first) = own.after;
        (own.after != nullptr ? (own.after->*links).before : last) = own.before;
        (element->*links) = {};
    }

  private:
    Element* first = nullptr;
    Element* last = nullptr;
};

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <unordered_set>

#include "tavik/ads/page_type.h"
#include "tavik/core/value.h"
#include "tavik/events/event_vocabulary.h"

namespace tavik {
namespace {

template <class E>
concept HasFromString = requires(std::string_view text) {
  fromString<E>(text);
};
template <class E>
concept HasAllCases = requires {
  allCases<E>();
};

// The namespaced family deliberately lacks the lenient lookup and the case list.
static_assert(HasFromString<PlaPageType> && HasAllCases<PlaPageType>);
static_assert(HasFromString<TavikEventName> && HasAllCases<TavikEventName>);
static_assert(HasFromString<TavikVideoActionType> && HasAllCases<TavikVideoActionType>);
static_assert(HasFromString<TavikEventPath> && HasAllCases<TavikEventPath>);
static_assert(!HasFromString<Tavik::PageType> && !HasAllCases<Tavik::PageType>);
static_assert(!HasFromString<Tavik::EventName> && !HasAllCases<Tavik::EventName>);
static_assert(!HasFromString<Tavik::VideoActionType> && !HasAllCases<Tavik::VideoActionType>);
static_assert(sizeof(PlaPageType) == 1 && sizeof(TavikEventName) == 1);

// Every case's wire string leads back to that case (and so no two share one).
template <class E>
void expectRoundTrips() {
  for (E value : allCases<E>()) {
    EXPECT_EQ(fromRawValue<E>(rawValue(value)), value) << rawValue(value);
    EXPECT_EQ(fromString<E>(rawValue(value)), value) << rawValue(value);
  }
}

TEST(PageTypeTest, FromStringUpperCasesWholeTextThenMatchesExactly) {
  EXPECT_EQ(fromString<PlaPageType>("tpa"), PlaPageType::tpa);
  EXPECT_EQ(fromString<PlaPageType>("Home"), PlaPageType::home);
  EXPECT_EQ(fromString<PlaPageType>("cAtEgOrY"), PlaPageType::category);
  // Nothing trimmed, nothing partial.
  for (std::string_view text :
       {std::string_view(" HOME"), std::string_view("HOME "), std::string_view(""),
        std::string_view("homepage"), std::string_view("hom"), std::string_view("HOME\0", 5)}) {
    EXPECT_EQ(fromString<PlaPageType>(text), std::nullopt) << tavik::quoteText(text);
  }
  // The raw-value lookup itself is case-sensitive.
  EXPECT_EQ(fromRawValue<PlaPageType>("tpa"), std::nullopt);
  EXPECT_EQ(fromRawValue<PlaPageType>("TPA"), PlaPageType::tpa);
  expectRoundTrips<PlaPageType>();
}

TEST(PageTypeTest, FromStringFollowsUnicodeUpperCasing) {
  // U+017F LATIN SMALL LETTER LONG S upper-cases to "S".
  EXPECT_EQ(fromString<PlaPageType>("\xC5\xBF"
                                    "earch"),
            PlaPageType::search);
  EXPECT_EQ(fromString<PlaPageType>("purcha\xC5\xBF"
                                    "e"),
            PlaPageType::purchase);
  // Letters whose upper case is not ASCII: fullwidth "ｈｏｍｅ", Kelvin sign, sharp s.
  EXPECT_EQ(fromString<PlaPageType>("\xEF\xBD\x88\xEF\xBD\x8F\xEF\xBD\x8D\xEF\xBD\x85"),
            std::nullopt);
  EXPECT_EQ(fromString<PlaPageType>("HOME\xCC\x81"), std::nullopt);  // combining acute
  EXPECT_EQ(fromString<PlaPageType>("\xC3\x9F"), std::nullopt);      // ß -> "SS"
  // Ill-formed UTF-8 never matches, even when it would decode to the long s.
  for (const char* text : {
           "\xE0\x85\xBF"
           "earch",  // overlong long s
           "\xC5"
           "earch",  // truncated sequence
           "\xBF"
           "earch",    // stray continuation byte
           "HOM\xC5",  // truncated at the end
           "\xED\xA0\x80"
           "HOME",              // encoded surrogate
           "\xF4\x90\x80\x80",  // beyond U+10FFFF
           "\xFF\xFE",
       }) {
    EXPECT_EQ(fromString<PlaPageType>(text), std::nullopt) << tavik::quoteText(text);
  }
  EXPECT_EQ(fromString<PlaPageType>(std::string(1 << 20, 'h')), std::nullopt);
}

TEST(PageTypeTest, CasesRawValuesAndNamespacedFamily) {
  constexpr auto cases = allCases<PlaPageType>();
  static_assert(cases.size() == 6);
  EXPECT_EQ(cases.front(), PlaPageType::product);
  EXPECT_EQ(cases.back(), PlaPageType::tpa);
  EXPECT_EQ(static_cast<int>(PlaPageType::tpa), 5);

  EXPECT_EQ(fromRawValue<Tavik::PageType>("PURCHASE"), Tavik::PageType::purchase);
  EXPECT_EQ(fromRawValue<Tavik::PageType>("purchase"), std::nullopt);
  EXPECT_EQ(rawValue(Tavik::PageType::search), "SEARCH");
  // Same tag, same wire string in both families.
  for (PlaPageType value : cases) {
    EXPECT_EQ(rawValue(static_cast<Tavik::PageType>(value)), rawValue(value));
  }

  EXPECT_EQ(std::hash<PlaPageType>{}(PlaPageType::home), std::hash<std::string_view>{}("HOME"));
  std::unordered_set<Tavik::PageType> seen{Tavik::PageType::home, Tavik::PageType::home,
                                           Tavik::PageType::tpa};
  EXPECT_EQ(seen.size(), 2u);
  std::ostringstream printed;
  printed << PlaPageType::category << ' ' << Tavik::PageType::tpa;
  EXPECT_EQ(printed.str(), "CATEGORY TPA");
}

TEST(EventVocabularyTest, LookupsAreExact) {
  EXPECT_EQ(fromString<TavikEventName>("funnel_salecomplete"), TavikEventName::funnelSaleComplete);
  EXPECT_EQ(fromString<TavikEventName>("funnelSaleComplete"), std::nullopt);
  EXPECT_EQ(fromString<TavikEventName>("FUNNEL_SALECOMPLETE"), std::nullopt);
  EXPECT_EQ(fromRawValue<TavikEventPath>("adclick"), std::nullopt);
  EXPECT_EQ(fromRawValue<TavikEventPath>("aclick"), TavikEventPath::adClick);
  EXPECT_EQ(pathName(TavikEventPath::adClick), "aclick");
  EXPECT_EQ(pathName(TavikEventPath::events), "events");
  for (std::string_view text : {"", "Mute", " mute", "mute "}) {
    EXPECT_EQ(fromRawValue<TavikVideoActionType>(text), std::nullopt) << tavik::quoteText(text);
    EXPECT_EQ(fromString<TavikVideoActionType>(text), std::nullopt) << tavik::quoteText(text);
  }
  EXPECT_EQ(eventName(TavikEventName::funnelAddToCart), "funnel_add2cart");
  EXPECT_EQ(actionType(TavikVideoActionType::fullscreen), "fullscreen");
  expectRoundTrips<TavikEventName>();
  expectRoundTrips<TavikVideoActionType>();
  expectRoundTrips<TavikEventPath>();
}

TEST(EventVocabularyTest, CaseListsAndTheTwoFamiliesAgree) {
  EXPECT_EQ(allCases<TavikEventName>().size(), 6u);
  EXPECT_EQ(allCases<TavikEventName>().front(), TavikEventName::viewProduct);
  EXPECT_EQ(allCases<TavikVideoActionType>().size(), 6u);
  EXPECT_EQ(allCases<TavikEventPath>().size(), 2u);
  EXPECT_EQ(allCases<TavikEventPath>().front(), TavikEventPath::adClick);

  EXPECT_EQ(fromRawValue<Tavik::EventName>("viewproduct"), Tavik::EventName::viewProduct);
  EXPECT_EQ(rawValue(Tavik::EventName::viewProduct), eventName(TavikEventName::viewProduct));
  EXPECT_EQ(rawValue(Tavik::EventName::purchase), "funnel_salecomplete");
  EXPECT_EQ(rawValue(Tavik::EventName::add2Cart), "funnel_add2cart");
  // Crossing families only through the wire string lands on the same position.
  for (TavikEventName name : allCases<TavikEventName>()) {
    const auto other = fromRawValue<Tavik::EventName>(eventName(name));
    ASSERT_TRUE(other.has_value()) << eventName(name);
    EXPECT_EQ(static_cast<int>(*other), static_cast<int>(name));
  }
  for (TavikVideoActionType type : allCases<TavikVideoActionType>()) {
    const auto other = fromRawValue<Tavik::VideoActionType>(actionType(type));
    ASSERT_TRUE(other.has_value()) << actionType(type);
    EXPECT_EQ(static_cast<int>(*other), static_cast<int>(type));
  }

  std::unordered_set<TavikEventName> names(allCases<TavikEventName>().begin(),
                                           allCases<TavikEventName>().end());
  EXPECT_EQ(names.size(), 6u);
  EXPECT_EQ(std::hash<Tavik::EventName>{}(Tavik::EventName::purchase),
            std::hash<TavikEventName>{}(TavikEventName::funnelSaleComplete));
}

}  // namespace
}  // namespace tavik

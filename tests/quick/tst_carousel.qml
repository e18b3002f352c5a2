import QtQuick
import QtTest
import Tavik

// Both carousels as a host declares them: sizes, paging by drag, wheel and keys, and
// the events each one reports, checked on the sandbox's log.
Item {
    id: host
    width: 700
    height: 500

    Component {
        id: carouselComponent
        CarouselAdView {}
    }
    Component {
        id: multiComponent
        MultiAdCarouselView {}
    }
    Component {
        id: pageComponent
        // A host page that scrolls vertically, a carousel on it.
        Flickable {
            property alias carousel: inner
            width: 700
            height: 500
            contentHeight: 2000
            CarouselAdView {
                id: inner
                y: 100
                adWidth: 300
            }
        }
    }
    Component {
        id: spyComponent
        SignalSpy {}
    }

    TestCase {
        name: "Carousel"
        when: windowShown

        function init() {
            sandbox.reset();
        }

        function carouselAd() {
            const ad = TavikAds.decodeCarouselAd(sandbox.adJson("au_carousel"));
            verify(ad.valid);
            return ad;
        }

        // Five banner ads: the catalogue's four multi ads and one more.
        function multiAds() {
            const list = [];
            for (let i = 0; i < 5; ++i) {
                const json = JSON.parse(sandbox.adJson("au_multi", i % 4));
                json.uclid = "uc-m-" + i;
                list.push(TavikAds.decodeBannerAd(JSON.stringify(json)));
            }
            return list;
        }

        function dragBy(item, dx) {
            const y = item.height / 2;
            const x = item.width / 2;
            mousePress(item, x, y);
            const steps = 10;
            for (let i = 1; i <= steps; ++i) mouseMove(item, x + dx * i / steps, y);
            mouseRelease(item, x + dx, y);
        }

        // The uclids of the impressions on the log (video cards also send progress).
        function impressions() {
            return sandbox.eventsFor("", "/events").filter(e => e.params.event_name === "funnel_impression")
                    .map(e => e.params.uclid);
        }

        function spyOn(target, signalName) {
            return createTemporaryObject(spyComponent, host, {target: target, signalName: signalName});
        }

        function settle(uclid, path, count) {
            tryVerify(() => sandbox.eventsFor(uclid, path).length >= count, 5000,
                      count + " events of " + uclid + " on " + path);
            wait(200);
            return sandbox.eventsFor(uclid, path);
        }

        function test_sizes_follow_the_first_card_and_the_screen() {
            const c = createTemporaryObject(carouselComponent, host, {ad: carouselAd()});
            compare(c.count, 3);
            compare(c.cardWidth, 300);
            compare(c.cardHeight, 250);
            compare(c.pitch, 308);
            compare(c.stripWidth, TavikMedia.maxAdWidth);
            compare(c.stripHeight, 250);
            c.elementWidth = 10000;
            c.adWidth = 280;
            compare(c.cardWidth, 280);   // a card is never wider than the strip
            compare(findChild(c, "pageDots").children.length - 1, 3);  // three dots and the repeater
        }

        function test_drag_pages_by_half_a_pitch_and_clamps() {
            const c = createTemporaryObject(carouselComponent, host, {ad: carouselAd(), adWidth: 300});
            compare(c.currentIndex, 0);
            dragBy(c, 100);       // right at the first card: stays
            compare(c.currentIndex, 0);
            dragBy(c, -100);      // short: snaps back
            compare(c.currentIndex, 0);
            compare(c.dragOffset, 0);
            dragBy(c, -170);
            compare(c.currentIndex, 1);
            dragBy(c, -170);
            compare(c.currentIndex, 2);
            dragBy(c, -170);      // the last card stays
            compare(c.currentIndex, 2);
            dragBy(c, 170);
            compare(c.currentIndex, 1);
            const list = findChild(c, "cardList");
            tryCompare(list, "contentX", c.scrollPosition, 2000);
            compare(c.scrollPosition, 308);
        }

        function test_the_row_follows_the_finger() {
            const c = createTemporaryObject(carouselComponent, host, {ad: carouselAd(), adWidth: 300});
            mousePress(c, 150, 100);
            for (let x = 150; x >= 90; x -= 10) mouseMove(c, x, 100);
            verify(c.dragOffset < -30, "offset " + c.dragOffset);
            compare(findChild(c, "cardList").contentX, c.scrollPosition - c.dragOffset);
            mouseRelease(c, 90, 100);
            compare(c.dragOffset, 0);
        }

        function test_wheel_and_arrow_keys_page() {
            const c = createTemporaryObject(carouselComponent, host, {ad: carouselAd(), adWidth: 300});
            mouseWheel(c, 150, 100, -120, 0);   // one notch right (touchpad or tilt): next card
            compare(c.currentIndex, 1);
            mouseWheel(c, 150, 100, 120, 0);    // one notch left: back
            compare(c.currentIndex, 0);
            mouseWheel(c, 150, 100, 0, -120);   // a vertical notch is not the carousel's
            compare(c.currentIndex, 0);
            c.forceActiveFocus();
            keyClick(Qt.Key_Right);
            keyClick(Qt.Key_Right);
            keyClick(Qt.Key_Right);
            compare(c.currentIndex, 2);
            keyClick(Qt.Key_Left);
            compare(c.currentIndex, 1);
        }

        // A shopper scrolling the page with the wheel over a carousel scrolls the page.
        function test_vertical_wheel_scrolls_the_host_page_past_a_carousel() {
            const page = createTemporaryObject(pageComponent, host);
            page.carousel.ad = carouselAd();
            waitForRendering(page);
            const c = page.carousel;
            mouseWheel(c, 150, 100, 0, -120);
            mouseWheel(c, 150, 100, 0, -120);
            tryVerify(() => page.contentY > 0, 2000);
            compare(c.currentIndex, 0);
        }

        function test_carousel_reports_one_impression_and_a_click_per_tapped_card() {
            const c = createTemporaryObject(carouselComponent, host, {ad: carouselAd(), adWidth: 300});
            const clicks = spyOn(c, "adClicked");
            const appears = spyOn(c, "adAppear");
            tryCompare(appears, "count", 1, 3000);
            mouseClick(c, 150, 100);
            dragBy(c, -170);
            tryCompare(findChild(c, "cardList"), "contentX", 308, 2000);
            mouseClick(c, 150, 100);
            compare(clicks.count, 2);
            compare(clicks.signalArguments[0][1].destinationUrl, "https://shop.example.com/p/card-1");
            compare(clicks.signalArguments[1][2], "https://shop.example.com/p/card-2");
            compare(settle("uc-carousel-1", "/aclick", 2).length, 2);
            const impressions = settle("uc-carousel-1", "/events", 1);
            compare(impressions.length, 1);
            compare(impressions[0].params.event_name, "funnel_impression");
            compare(c.Accessible.name, "Sponsored");
        }

        function test_an_empty_carousel_has_no_dots_and_ignores_drags() {
            const json = JSON.parse(sandbox.adJson("au_carousel"));
            json.elements.carousel_cards = [];
            const c = createTemporaryObject(carouselComponent, host,
                                            {ad: TavikAds.decodeCarouselAd(JSON.stringify(json))});
            compare(c.count, 0);
            compare(c.stripHeight, Math.min(TavikMedia.maxAdWidth, TavikMedia.maxAdHeight));
            dragBy(c, -200);
            compare(c.currentIndex, 0);
            compare(settle("uc-carousel-1", "/events", 1).length, 1);  // still one impression
        }

        function test_multi_reports_the_impressions_of_the_cards_seen_once_each() {
            const m = createTemporaryObject(multiComponent, host, {ads: multiAds(), adWidth: 300});
            compare(m.count, 5);
            compare(m.cardWidth, 300);
            settle("uc-m-0", "/events", 1);
            compare(impressions().join(","), "uc-m-0");  // only the first card was on screen
            m.step(1);
            settle("uc-m-1", "/events", 1);
            m.step(1);
            settle("uc-m-2", "/events", 1);
            m.step(-1);
            m.step(-1);
            wait(500);
            compare(impressions().join(","), "uc-m-0,uc-m-1,uc-m-2");
        }

        function test_multi_cards_report_their_own_clicks() {
            const m = createTemporaryObject(multiComponent, host, {ads: multiAds(), adWidth: 300});
            const clicks = spyOn(m, "adClicked");
            settle("uc-m-0", "/events", 1);
            const first = findChild(m, "card0");
            verify(first);
            mouseClick(first);
            m.step(1);
            tryCompare(findChild(m, "cardList"), "contentX", 308, 2000);
            const second = findChild(m, "card1");
            mouseClick(second);
            mouseClick(second);
            compare(clicks.count, 3);
            compare(clicks.signalArguments[2][0].uclid, "uc-m-1");
            compare(settle("uc-m-0", "/aclick", 1).length, 1);
            compare(settle("uc-m-1", "/aclick", 2).length, 2);
            compare(second.Accessible.name, "Sponsored, 2 of 5");
        }

        // An ad the strip cannot draw takes no room in the row, keeps its dot and its
        // place in paging.
        function test_multi_an_undrawable_card_takes_no_room_but_keeps_its_dot() {
            const ads = [];
            for (const [i, source] of [[0, 0], [1, 2], [2, 3]].entries()) {
                const json = JSON.parse(sandbox.adJson("au_multi", source[1]));
                json.uclid = "uc-gap-" + i;
                if (i === 1) json.crt = "tavik_sdk/carousel/v1";
                ads.push(TavikAds.decodeBannerAd(JSON.stringify(json)));
            }
            const m = createTemporaryObject(multiComponent, host, {ads: ads, adWidth: 300});
            compare(m.count, 3);
            compare(findChild(m, "pageDots").children.length - 1, 3);  // 3 dots and the Repeater
            const list = findChild(m, "cardList");
            m.step(1);
            m.step(1);
            compare(m.currentIndex, 2);
            tryVerify(() => findChild(m, "card2") !== null, 2000);
            const third = findChild(m, "card2");
            compare(third.mapToItem(list.contentItem, 0, 0).x, m.pitch);  // right after card 0
            compare(m.cardTakesRoom(1), false);
            compare(m.cardTakesRoom(2), true);
            // Two cards of 300 and one gap: centring the third stops where the content ends.
            tryCompare(list, "contentX", 308, 2000);
        }

        // Without a host background, a card whose picture does not cover it shows what
        // lies beneath (here the white window), never a black box.
        function test_no_card_background_means_none() {
            const json = JSON.parse(sandbox.adJson("au_carousel"));
            for (const card of json.elements.carousel_cards) card.media.value = "https://127.0.0.1:1/none.png";
            const c = createTemporaryObject(carouselComponent, host,
                                            {ad: TavikAds.decodeCarouselAd(JSON.stringify(json)), adWidth: 300});
            waitForRendering(c);
            const picture = grabImage(c);
            const pixel = picture.pixel(c.cardWidth / 2, c.cardHeight / 2);
            verify(Qt.colorEqual(pixel, "white"), "card centre is " + pixel);
            c.cardBackground = "#ff0000";
            waitForRendering(c);
            verify(Qt.colorEqual(grabImage(c).pixel(c.cardWidth / 2, c.cardHeight / 2), "#ff0000"));
        }

        function test_one_ad_always_snaps_back() {
            const m = createTemporaryObject(multiComponent, host, {ads: multiAds().slice(0, 1)});
            dragBy(m, -250);
            compare(m.currentIndex, 0);
            compare(m.count, 1);
        }
    }
}

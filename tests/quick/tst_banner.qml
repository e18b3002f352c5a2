import QtQuick
import QtTest
import Tavik

// The banner as a host declares it: drawing, label placement, taps, keys, appearance by
// scrolling, and the self-fetching TavikBanner; events checked on the sandbox's log.
Item {
    id: host
    width: 400
    height: 300

    Component {
        id: bannerComponent
        BannerAdView {}
    }

    Component {
        id: scrollerComponent
        Flickable {
            property alias banner: banner
            width: 400
            height: 300
            clip: true
            contentHeight: 2000
            BannerAdView {
                id: banner
                y: 100
            }
        }
    }

    Component {
        id: listComponent
        // A host's feed: plain rows and, at row 12, a banner.
        ListView {
            id: feed
            property var bannerAd
            width: 400
            height: 300
            model: 30
            cacheBuffer: 0
            delegate: Item {
                required property int index
                property alias banner: rowBanner
                width: 400
                height: index === 12 ? 60 : 100
                BannerAdView {
                    id: rowBanner
                    visible: index === 12
                    ad: feed.bannerAd
                }
            }
        }
    }

    Component {
        id: selfFetching
        TavikBanner {
            pageType: "HOME"
            cliUbid: "shopper-9"
        }
    }

    Component {
        id: spyComponent
        SignalSpy {}
    }

    SignalSpy {
        id: appearSpy
        signalName: "adAppear"
    }
    SignalSpy {
        id: clickSpy
        signalName: "adClicked"
    }

    TestCase {
        name: "Banner"
        when: windowShown

        function init() {
            sandbox.reset();
            appearSpy.clear();
            clickSpy.clear();
        }

        function ad(unit, index) {
            const value = TavikAds.decodeBannerAd(sandbox.adJson(unit, index || 0));
            verify(value.valid, "catalogue ad " + unit);
            return value;
        }

        function waitForLog(uclid, path, count) {
            tryVerify(() => sandbox.eventsFor(uclid, path).length >= count, 5000,
                      count + " events on " + path);
            wait(200);  // nothing more should follow
            return sandbox.eventsFor(uclid, path);
        }

        function test_image_banner_draws_at_its_creative_size_and_reports_one_impression() {
            const banner = createTemporaryObject(bannerComponent, host, {ad: ad("au_home_banner")});
            compare(banner.creativeKind, BannerAdViewBase.Image);
            compare(banner.frameWidth, 320);
            compare(banner.frameHeight, 50);
            compare(banner.width, 320);
            tryCompare(banner, "pictureStatus", Image.Ready, 5000);
            compare(banner.pictureSize.width, 320);
            const events = waitForLog("uc-home-banner-1", "/events", 1);
            compare(events.length, 1);
            compare(events[0].event_name, "funnel_impression");
            compare(events[0].params.uclid, "uc-home-banner-1");
            verify(!("position" in events[0].params));
            verify(banner.impressionReported);
        }

        function test_wanted_size_and_the_screen_cap() {
            const banner = createTemporaryObject(bannerComponent, host,
                                                 {ad: ad("au_home_banner"), adWidth: 200, adHeight: 10000});
            compare(banner.frameWidth, 200);
            compare(banner.frameHeight, TavikMedia.maxAdHeight);
            verify(TavikMedia.maxAdHeight > 0);
        }

        function test_templates_and_types_that_do_not_draw() {
            const json = JSON.parse(sandbox.adJson("au_home_banner", 0));
            const cases = [["crt", "TAVIK_SDK/IMAGE/V1"], ["crt", "tavik_sdk/carousel/v1"],
                           ["type", "image"], ["type", "GIF"]];
            for (const [key, value] of cases) {
                const copy = JSON.parse(JSON.stringify(json));
                if (key === "crt") copy.crt = value; else copy.elements.type = value;
                copy.uclid = "uc-none-" + value;
                const banner = createTemporaryObject(bannerComponent, host,
                                                     {ad: TavikAds.decodeBannerAd(JSON.stringify(copy))});
                compare(banner.creativeKind, BannerAdViewBase.None, value);
                compare(banner.width, 0, value);
                banner.tap();
            }
            // A template that only continues after the prefix still draws.
            const longer = JSON.parse(JSON.stringify(json));
            longer.crt = "tavik_sdk/image/v1/wide";
            const drawn = createTemporaryObject(bannerComponent, host,
                                                {ad: TavikAds.decodeBannerAd(JSON.stringify(longer))});
            compare(drawn.creativeKind, BannerAdViewBase.Image);
            wait(300);
            compare(sandbox.eventsFor("", "/aclick").length, 0);
            compare(sandbox.eventsFor("uc-none-image").length, 0);
        }

        function test_taps_report_a_click_each_and_hand_the_ad_to_the_host() {
            const banner = createTemporaryObject(bannerComponent, host, {ad: ad("au_home_banner")});
            clickSpy.target = banner;
            waitForLog("uc-home-banner-1", "/events", 1);
            mouseClick(banner);
            mouseClick(banner);
            compare(clickSpy.count, 2);
            compare(clickSpy.signalArguments[0][0].uclid, "uc-home-banner-1");
            compare(clickSpy.signalArguments[0][0].elements.destinationUrl,
                    "https://shop.example.com/deals/summer");
            const clicks = waitForLog("uc-home-banner-1", "/aclick", 2);
            compare(clicks.length, 2);
            compare(clicks[0].params.cli_ubid, "");
            compare(sandbox.eventsFor("uc-home-banner-1", "/events").length, 1);
        }

        function test_enter_and_space_on_the_focused_banner_count_as_taps() {
            const banner = createTemporaryObject(bannerComponent, host, {ad: ad("au_home_banner")});
            clickSpy.target = banner;
            compare(banner.Accessible.name, "Sponsored");
            banner.forceActiveFocus();
            verify(banner.activeFocus);
            keyClick(Qt.Key_Return);
            keyClick(Qt.Key_Space);
            compare(clickSpy.count, 2);
        }

        function test_label_placements() {
            const banner = createTemporaryObject(bannerComponent, host,
                                                 {ad: ad("au_home_banner", 1), adLabelText: "Ad"});
            const w = 30, h = 20;  // any label size
            const table = [
                [Qt.AlignLeft | Qt.AlignTop, 0, 0], [Qt.AlignHCenter | Qt.AlignTop, 135, 0],
                [Qt.AlignRight | Qt.AlignTop, 270, 0], [Qt.AlignLeft | Qt.AlignVCenter, 0, 115],
                [Qt.AlignCenter, 135, 115], [Qt.AlignRight | Qt.AlignVCenter, 270, 115],
                [Qt.AlignLeft | Qt.AlignBottom, 0, 230], [Qt.AlignHCenter | Qt.AlignBottom, 135, 230],
                [Qt.AlignRight | Qt.AlignBottom, 270, 230]];
            for (const [alignment, x, y] of table) {
                banner.adLabelAlignment = alignment;
                const r = banner.labelRect(w, h);
                compare(r.x, x, "x for " + alignment);
                compare(r.y, y, "y for " + alignment);
            }
            banner.adLabelText = "";
            wait(0);
        }

        function test_scrolled_away_and_back_appears_twice_with_one_impression() {
            const scroller = createTemporaryObject(scrollerComponent, host);
            const banner = scroller.banner;
            appearSpy.target = banner;
            banner.ad = ad("au_home_banner");
            tryCompare(appearSpy, "count", 1, 3000);
            scroller.contentY = 600;   // out of the clipped viewport
            tryCompare(banner, "onScreen", false, 3000);
            scroller.contentY = 0;
            tryCompare(appearSpy, "count", 2, 3000);
            const impressions = waitForLog("uc-home-banner-1", "/events", 1);
            compare(impressions.length, 1);
        }

        function test_a_banner_created_off_screen_reports_nothing_until_scrolled_in() {
            const scroller = createTemporaryObject(scrollerComponent, host);
            const banner = scroller.banner;
            banner.y = 1500;
            appearSpy.target = banner;
            banner.ad = ad("au_home_banner");
            wait(400);
            compare(appearSpy.count, 0);
            compare(sandbox.eventsFor("uc-home-banner-1").length, 0);
            scroller.contentY = 1400;
            tryCompare(appearSpy, "count", 1, 3000);
            compare(waitForLog("uc-home-banner-1", "/events", 1).length, 1);
        }

        // Scrolled into a list's viewport, a banner becomes viewable after a continuous
        // second on screen; half of it is half; out of the viewport it is none.
        function test_a_banner_scrolled_into_a_list_becomes_viewable_after_a_second() {
            const list = createTemporaryObject(listComponent, host, {bannerAd: ad("au_home_banner")});
            list.positionViewAtIndex(12, ListView.Beginning);
            tryVerify(() => list.itemAtIndex(12) !== null, 2000);
            const banner = list.itemAtIndex(12).banner;
            const seen = createTemporaryObject(spyComponent, host, {target: banner, signalName: "viewable"});
            tryCompare(banner, "visibleFraction", 1, 2000);
            const shownAt = Date.now();
            seen.wait(3000);
            verify(Date.now() - shownAt >= 950, "viewable after " + (Date.now() - shownAt) + " ms");
            compare(seen.count, 1);
            compare(seen.signalArguments[0][0].uclid, "uc-home-banner-1");
            verify(banner.viewableReported);
            // Half of it above the top edge: a half.
            list.contentY = list.contentY + 25;
            tryVerify(() => Math.abs(banner.visibleFraction - 0.5) < 0.01, 2000,
                      "half out: " + banner.visibleFraction);
            list.contentY = list.contentY + 200;
            tryCompare(banner, "visibleFraction", 0, 2000);
            wait(300);
            compare(seen.count, 1);  // once per view instance
        }

        function test_self_fetching_banner_shows_the_ad_of_its_unit() {
            const banner = createTemporaryObject(selfFetching, host, {adUnit: "au_home_banner"});
            tryCompare(banner, "status", BannerAdRequest.Ready, 5000);
            compare(banner.ad.uclid, "uc-home-banner-1");
            compare(banner.ad.cliUbid, "shopper-9");
            const events = waitForLog("uc-home-banner-1", "/events", 1);
            compare(events[0].params.cli_ubid, "shopper-9");
        }

        function test_self_fetching_banner_reports_a_missing_unit_once() {
            const banner = createTemporaryObject(selfFetching, host);
            compare(banner.status, BannerAdRequest.Idle);  // no ad unit: nothing asked
            const spy = createTemporaryQmlObject("import QtTest; SignalSpy { signalName: 'error' }", host);
            spy.target = banner;
            banner.adUnit = "au_does_not_exist";
            tryCompare(banner, "status", BannerAdRequest.Error, 5000);
            wait(200);
            compare(spy.count, 1);
            compare(spy.signalArguments[0][0], "ERROR_FAILED_TO_DECODE_DATA");
            compare(banner.width, 0);
        }
    }
}

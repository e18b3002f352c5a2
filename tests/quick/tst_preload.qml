import QtQuick
import QtTest
import Tavik

// Preloading from QML: TavikAds.preload gives a result to wait for, and a banner made
// after it completed has its picture at once; one made without waits for its download.
Item {
    id: host
    width: 400
    height: 300

    Component {
        id: bannerComponent
        BannerAdView {}
    }

    TestCase {
        name: "Preload"
        when: windowShown

        function ad(unit, index) {
            const value = TavikAds.decodeBannerAd(sandbox.adJson(unit, index || 0));
            verify(value.valid, "catalogue ad " + unit);
            return value;
        }

        function test_a_banner_made_after_its_preload_has_its_picture_at_once() {
            sandbox.reset();
            const preloaded = ad("au_home_banner", 0);
            const preload = TavikAds.preload(preloaded);
            compare(preload.status, CreativePreload.Loading);
            const finished = createTemporaryObject(signalSpyComponent, host,
                                                   {target: preload, signalName: "finished"});
            tryCompare(preload, "status", CreativePreload.Ready, 5000);
            compare(finished.count, 1);
            compare(preload.errorString, "");

            const banner = createTemporaryObject(bannerComponent, host, {ad: preloaded});
            compare(banner.pictureStatus, Image.Ready, "drawn without waiting");
            compare(banner.pictureSize.width, 320);

            // The control: another ad, not preloaded, is still on its way.
            const other = createTemporaryObject(bannerComponent, host, {ad: ad("au_home_banner", 1)});
            verify(other.pictureStatus !== Image.Ready);
            tryCompare(other, "pictureStatus", Image.Ready, 5000);
        }

        function test_an_ad_without_a_creative_to_load_is_empty() {
            const preload = TavikAds.preload(TavikAds.decodeBannerAd("{}"));
            compare(preload.status, CreativePreload.Empty);
            // An image template whose element is neither image nor video draws nothing.
            const json = JSON.parse(sandbox.adJson("au_home_banner", 0));
            json.elements.type = "AUDIO";
            const nothing = TavikAds.preload(TavikAds.decodeBannerAd(JSON.stringify(json)));
            tryCompare(nothing, "status", CreativePreload.Empty, 5000);
        }
    }

    Component {
        id: signalSpyComponent
        SignalSpy {}
    }
}

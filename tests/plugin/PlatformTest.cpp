// The stand-in platform's bundles: installation from properties, and the start/stop state machine.
#include "TestFiles.h"

#include "host/osp/OSPSubsystem.h"

#include <Poco/Util/MapConfiguration.h>
#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

namespace Poco::OSP {
namespace {

using ubrof::test::ScratchDir;

struct Calls {
    int starts = 0;
    int stops = 0;
    bool fail = false;
};

class CountingActivator : public BundleActivator {
public:
    explicit CountingActivator(Calls& calls) : calls_(calls) {}
    void start(BundleContext::Ptr context) override
    {
        ++calls_.starts;
        EXPECT_EQ("counted", context->thisBundle()->symbolicName());
        if (calls_.fail)
            throw Poco::IllegalStateException("not now");
    }
    void stop(BundleContext::Ptr) override { ++calls_.stops; }

private:
    Calls& calls_;
};

TEST(Bundle, StartsOnceStopsOnceAndMayBeStartedAgainAfterAFailure)
{
    OSPSubsystem platform;
    Calls calls;
    calls.fail = true;
    Bundle::Ptr bundle = platform.bundleLoader().installBundle(
        "counted", new Poco::Util::MapConfiguration, [&calls] { return new CountingActivator(calls); });
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state());
    EXPECT_THROW(bundle->start(), Poco::IllegalStateException);
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state());

    calls.fail = false;
    bundle->start();
    bundle->start();
    EXPECT_EQ(2, calls.starts);
    EXPECT_EQ(Bundle::BUNDLE_ACTIVE, bundle->state());
    bundle->stop();
    bundle->stop();
    EXPECT_EQ(1, calls.stops);
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state());
    EXPECT_EQ(nullptr, bundle->activator());
}

TEST(BundleLoader, InstallsFromPropertiesAndRejectsIncompleteOnes)
{
    ScratchDir dir;
    OSPSubsystem platform;
    BundleLoader& loader = platform.bundleLoader();
    EXPECT_THROW(loader.installBundle(dir.dir()), Poco::FileNotFoundException);

    std::ofstream(dir.path("bundle.properties")) << "bundle.symbolicName = incomplete\n";
    EXPECT_THROW(loader.installBundle(dir.dir()), Poco::NotFoundException) << "no activator named";

    // The built module under another name, with properties that name a class it does not export.
    const std::string module = std::string(UBROF_MODULE_DIR) + "/com_quarnel_debugger_ubrof.so";
    ASSERT_EQ(0, symlink(module.c_str(), dir.path("renamed.so").c_str()));
    std::ofstream(dir.path("bundle.properties")) << "bundle.symbolicName = renamed\n"
                                                    "bundle.activator = SomeOtherActivator\n"
                                                    "bundle.library = renamed.so\n";
    Bundle::Ptr bundle = loader.installBundle(dir.dir());
    EXPECT_EQ(dir.path("renamed.so"), bundle->path());
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state()) << "nothing is loaded before the start";
    try {
        bundle->start();
        FAIL() << "started without an activator";
    } catch (const Poco::NotFoundException& e) {
        EXPECT_NE(std::string::npos, e.displayText().find("SomeOtherActivator"));
        EXPECT_NE(std::string::npos, e.displayText().find("renamed.so"));
    }
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state());
    EXPECT_THROW(loader.installBundle(dir.path("renamed.so")), Poco::ExistsException) << "one bundle per name";

    std::vector<Bundle::Ptr> bundles;
    loader.listBundles(bundles);
    ASSERT_EQ(1u, bundles.size());
    EXPECT_EQ(bundle, loader.findBundle("renamed"));
    EXPECT_FALSE(loader.findBundle("incomplete"));
}

} // namespace
} // namespace Poco::OSP

// The built module as the platform loads it (manifest, activator, registration and the parser
// factory), and the stand-in platform's own bundles.
#include "TestFiles.h"

#include "host/CoreException.h"
#include "host/IBinaryInformation.h"
#include "host/osp/OSPSubsystem.h"
#include "host/osp/PreferencesService.h"
#include "plugin/OspClassFactoryManager.h"

#include <Poco/ClassLoader.h>
#include <Poco/SharedLibrary.h>
#include <Poco/Util/MapConfiguration.h>
#include <boost/pointer_cast.hpp>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace tarn {
namespace {

const std::string kModule = std::string(UBROF_MODULE_DIR) + "/com_quarnel_debugger_ubrof.so";
const std::string kServiceName = "com.quarnel.tarndbg.ObjectfileParserFactory.Ubrof";

class SomethingElse {
public:
    virtual ~SomethingElse() = default;
};

TEST(BundleModule, ManifestNamesTheActivatorAndNothingElse)
{
    Poco::ClassLoader<Poco::OSP::BundleActivator> loader;
    loader.loadLibrary(kModule);
    const auto* meta = loader.findClass("DebuggerUbrofBundleActivator");
    ASSERT_NE(nullptr, meta);
    EXPECT_TRUE(meta->canCreate());
    EXPECT_THROW(meta->instance(), Poco::InvalidAccessException) << "the activator is not a singleton";
    std::unique_ptr<Poco::OSP::BundleActivator> activator(meta->create());
    EXPECT_TRUE(activator);

    Poco::SharedLibrary library(kModule);
    auto build = reinterpret_cast<bool (*)(Poco::ManifestBase*)>(library.getSymbol("pocoBuildManifest"));
    Poco::Manifest<SomethingElse> other;
    EXPECT_FALSE(build(&other));
    EXPECT_EQ(0, other.size());
}

TEST(BundleModule, RegistersTheParserFactoryUnderItsServiceNameAndCategory)
{
    Poco::OSP::OSPSubsystem platform;
    auto bundle = platform.bundleLoader().installBundle(kModule);
    EXPECT_EQ("com.quarnel.debugger.ubrof", bundle->symbolicName());
    EXPECT_FALSE(platform.serviceRegistry().findByName(kServiceName)) << "nothing runs before the bundle starts";

    OspClassFactoryManager manager(platform);
    EXPECT_EQ(std::vector<std::string>{kServiceName}, manager.getClassNames("ObjectfileParserFactory"));
    ::testing::internal::CaptureStdout();
    const auto factories = manager.getClassFactories("ObjectfileParserFactory");
    const auto byName = manager.getClassFactory(kServiceName);
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout()) << "started once, registered once";
    EXPECT_EQ(Poco::OSP::Bundle::BUNDLE_ACTIVE, bundle->state());
    ASSERT_EQ(1u, factories.size());
    EXPECT_EQ(factories[0], byName);
    EXPECT_EQ("ObjectfileParserFactory", byName->getCategoryName());

    auto reference = platform.serviceRegistry().findByName(kServiceName);
    ASSERT_TRUE(reference);
    EXPECT_EQ("ObjectfileParserFactory", reference->properties().get("CategoryName"));
    std::vector<Poco::OSP::ServiceRef::Ptr> found;
    EXPECT_EQ(0u, platform.serviceRegistry().find("CategoryName==\"Ubrof\"", found));
    EXPECT_TRUE(manager.getClassFactories("Ubrof").empty());

    bundle->stop();
    EXPECT_TRUE(platform.serviceRegistry().findByName(kServiceName)) << "stop leaves the factory registered";
}

// The factory makes a parser of its own for each call and passes a failure on as the module's own;
// the one preference through which a host lets the module read format versions 10 and 11 is read
// at every parse.
TEST(BundleModule, FactoryMakesIndependentParsersThatReadVersions10And11WhenTheHostsPreferenceSaysSo)
{
    ubrof::test::ScratchDir dir;
    ubrof::UbrofWriter older, w;
    const std::string version8 = dir.save(older.begFile1().version(8).begLib("main").end().eof(), "old.d90");
    w.begFile1().version(10, 0, 2, ubrof::UbrofWriter::newerSkipInfo(10));
    w.begLib("main").org(1, 0x100).absVar({1, 2, 3, 4}).end().eof();
    const std::string file = dir.save(w);
    const std::string key = "com.quarnel.tarndbg.ubrof.readNewerVersions";

    Poco::AutoPtr<Poco::Util::MapConfiguration> preferences(new Poco::Util::MapConfiguration);
    Poco::OSP::OSPSubsystem platform(preferences);
    platform.bundleLoader().installBundle(UBROF_MODULE_DIR);
    OspClassFactoryManager manager(platform);
    auto factory = boost::dynamic_pointer_cast<IObjectfileParserFactory>(manager.getClassFactory(kServiceName));
    ASSERT_TRUE(factory);
    EXPECT_EQ("Ubrof", factory->getObjectFileFormat());
    const auto first = factory->createObjectfileParser(version8), second = factory->createObjectfileParser(version8);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    auto refusal = [&] {
        try {
            factory->createObjectfileParser(file);
        } catch (const CoreException& e) {
            EXPECT_EQ(ErrorCode::ObjectfileParseFailed, e.getErrorCode());
            return e.getStatus()->getMessage();
        }
        return std::string("parsed");
    };
    const std::string refused = "Failed to parse nordic object file " + file + ".";
    EXPECT_EQ(refused, refusal());

    preferences->setString(key, "True");
    const auto parser = factory->createObjectfileParser(file);
    ASSERT_TRUE(parser);
    EXPECT_EQ(1u, parser->createBinaryInformation()->getProgramSegments().size());

    for (const char* other : {"false", "", "yes please"}) {
        preferences->setString(key, other);
        EXPECT_EQ(refused, refusal()) << other;
    }
    // A platform without preferences leaves every setting at its default.
    preferences->setString(key, "1");
    platform.serviceRegistry().unregisterService(Poco::OSP::PreferencesService::SERVICE_NAME);
    EXPECT_EQ(refused, refusal());
}

// The platform finds the bundle by its manifest function alone; everything else stays inside, so
// that the module's code and the libraries it carries cannot clash with the host's.
TEST(BundleModule, ExportsOnlyTheManifest)
{
    const std::string command = "nm -D --defined-only '" + kModule + "' 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> nm(popen(command.c_str(), "r"), &pclose);
    ASSERT_TRUE(nm);
    std::vector<std::string> names;
    char line[4096];
    while (std::fgets(line, sizeof line, nm.get())) {
        std::istringstream fields(line);
        std::string address, type, name;
        fields >> address >> type >> name;
        names.push_back(name.empty() ? line : name);
    }
    ASSERT_EQ(0, pclose(nm.release())) << command;
    EXPECT_EQ(std::vector<std::string>{"pocoBuildManifest"}, names) << names.size() << " names exported";
}

// ---- The stand-in platform's bundles installed from properties (their start and stop: ClassFactoryManagerTest).

TEST(PlatformBundleLoader, InstallsFromPropertiesAndRejectsIncompleteOnes)
{
    ubrof::test::ScratchDir dir;
    Poco::OSP::OSPSubsystem platform;
    Poco::OSP::BundleLoader& loader = platform.bundleLoader();
    EXPECT_THROW(loader.installBundle(dir.dir()), Poco::FileNotFoundException);

    std::ofstream(dir.path("bundle.properties")) << "bundle.symbolicName = incomplete\n";
    EXPECT_THROW(loader.installBundle(dir.dir()), Poco::NotFoundException) << "no activator named";

    // The built module under another name, with properties that name a class it does not export.
    const std::string module = std::string(UBROF_MODULE_DIR) + "/com_quarnel_debugger_ubrof.so";
    ASSERT_EQ(0, symlink(module.c_str(), dir.path("renamed.so").c_str()));
    std::ofstream(dir.path("bundle.properties")) << "bundle.symbolicName = renamed\n"
                                                    "bundle.activator = SomeOtherActivator\n"
                                                    "bundle.library = renamed.so\n";
    Poco::OSP::Bundle::Ptr bundle = loader.installBundle(dir.dir());
    EXPECT_EQ(dir.path("renamed.so"), bundle->path());
    EXPECT_EQ(Poco::OSP::Bundle::BUNDLE_RESOLVED, bundle->state()) << "nothing is loaded before the start";
    try {
        bundle->start();
        FAIL() << "started without an activator";
    } catch (const Poco::NotFoundException& e) {
        EXPECT_NE(std::string::npos, e.displayText().find("SomeOtherActivator"));
        EXPECT_NE(std::string::npos, e.displayText().find("renamed.so"));
    }
    EXPECT_EQ(Poco::OSP::Bundle::BUNDLE_RESOLVED, bundle->state());
    EXPECT_THROW(loader.installBundle(dir.path("renamed.so")), Poco::ExistsException) << "one bundle per name";

    std::vector<Poco::OSP::Bundle::Ptr> bundles;
    loader.listBundles(bundles);
    EXPECT_EQ(std::vector<Poco::OSP::Bundle::Ptr>{bundle}, bundles);
    EXPECT_EQ(bundle, loader.findBundle("renamed"));
    EXPECT_FALSE(loader.findBundle("incomplete"));
}

} // namespace
} // namespace tarn

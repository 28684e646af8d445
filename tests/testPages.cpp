// What pages, schema and tool tell of the provider's records and numbers, beside the provider's own: nobody else
// reminds whoever changes one of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <sstream>

#include "agentDirectory.h"
#include "columns.h"
#include "failure.h"
#include "instances.h"
#include "json.h"
#include "monitorState.h"
#include "oxtFsField.h"
#include "oxtMof.h"
#include "oxtPaths.h"
#include "providerSegment.h"
#include "records.h"
#include "session.h"
#include "values.h"
#include "view.h"

namespace {

using namespace oxttool;
using ::testing::ContainerEq;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

static_assert(kKeyProject == OXT_SHMKEY_PROJECT, "the tool finds the provider's segments");
static_assert(kLeastCycle == OXT_CYCLE_MIN && kGreatestCycle == OXT_CYCLE_MAX && kDefaultCycle == OXT_CYCLE_DEFAULT);
static_assert(kConfigBytes == sizeof(FsConf) && kTotalBytes == sizeof(FsTnum) && kFileSystemBytes == sizeof(FsProv));

constexpr const char *kTypes[] = {"char[256]", "uint16", "uint16", "sint16", "uint32", "sint64"}; // by FsFieldKind

// A page with its line ends and runs of blanks as single blanks.
std::string page(const std::string &name) {
    return std::regex_replace(fileContent(OXT_TEST_SOURCE_DIR "../" + name), std::regex("\\s+"), " ");
}

template <std::size_t count> void add(std::vector<std::string> &rows, const FsField (&fields)[count]) {
    for (const FsField &field : fields)
        rows.push_back(std::to_string(field.offset) + " " + kTypes[field.kind] + " " + field.name);
}

std::string unitIn(const std::string &text) {
    return text.find("MiB") != std::string::npos       ? "MebiBytes"
           : text.find("seconds") != std::string::npos ? "Seconds"
                                                       : "";
}

TEST(Pages, TheFormatsHaveEachFieldWithItsUnit) {
    std::vector<std::string> fields, rows;
    add(fields, FS_CONF_FIELDS);
    add(fields, FS_TNUM_FIELDS);
    add(fields, FS_PROV_FIELDS);
    std::map<std::string, std::string> units; // by field
    std::istringstream lines(fileContent(OXT_TEST_SOURCE_DIR "../docs/formats.md"));
    const std::regex row("\\| (\\d+) \\| (\\S+) \\| `(\\w+)`(.*)");
    std::smatch part;
    for (std::string line; std::getline(lines, line) && line != "## Save file";)
        if (std::regex_match(line, part, row)) {
            rows.push_back(part.str(1) + " " + part.str(2) + " " + part.str(3));
            units[part.str(3)] = unitIn(part.str(4));
        }
    EXPECT_THAT(rows, ContainerEq(fields));

    const oxthost::Mof mof = oxthost::readMof(fileContent(OXT_TEST_SOURCE_DIR "../packaging/OXT_FileSystem.mof"));
    oxthost::Instance ones; // a file system on which every number is 1
    long spaces = 0;
    for (const auto &cls : mof.classes)
        for (const auto &property : cls.properties) {
            std::string unit, field = property.name;
            for (const FsField &candidate : FS_PROV_FIELDS)
                field = property.name == candidate.property ? candidate.name : field;
            for (const auto &[qualifier, text] : property.qualifiers)
                unit = qualifier == "Units" ? text : unit;
            EXPECT_EQ(units[field], unit) << property.name << ": docs/formats.md beside the schema";
            spaces += unit == "MebiBytes" ? 1 : 0;
            if (property.typeCode != CMPI_string)
                ones.properties.emplace_back(property.name, oxthost::Value::unsignedNumber(property.typeCode, 1));
        }
    ones.properties.emplace_back("Index", oxthost::Value::string("1"));
    const Json shown = jsonOf(fileSystemOf(ones), Unit::Bytes);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), Json(1048576)), spaces) << shown;
    EXPECT_EQ(std::count(shown.begin(), shown.end(), Json(0)), 0) << "a member that no property fills: " << shown;

    // The same out of a record, and by way of a running monitor: none of the three forgets a field.
    FsProv prov = {};
    for (const FsField &field : FS_PROV_FIELDS)
        if (field.kind != FS_FIELD_TEXT)
            reinterpret_cast<char *>(&prov)[field.offset] = 1;
    EXPECT_EQ(jsonOf(fileSystemOf({reinterpret_cast<const char *>(&prov), sizeof prov}), Unit::Bytes), shown);
    View view;
    view.fileSystems = {fileSystemOf(ones)};
    view.curves.resize(1);
    FileSystem told = parseState(stateText(view, true)).fileSystems.at(0);
    told.outlook.reset();
    EXPECT_EQ(jsonOf(told, Unit::Bytes), shown);
}

TEST(Pages, TheTypesOfTheFormatsAreKnownToSave) {
    const std::string formats = page("docs/formats.md");
    std::smatch list;
    ASSERT_TRUE(std::regex_search(formats, list, std::regex("`_FileSystemType`: ([^|]*)")));
    const std::string types = list.str(1);
    const std::regex quoted("\"(\\w+)\"");
    int count = 0;
    for (std::sregex_iterator type(types.begin(), types.end(), quoted), end; type != end; ++type, ++count) {
        FsProv prov = {};
        oxtCopyText(prov._FileSystemType, OXT_FS_TEXT, type->str(1).c_str());
        for (const std::string &doubt : doubtsOfFileSystem({reinterpret_cast<const char *>(&prov), sizeof prov}, 0))
            EXPECT_THAT(doubt, Not(HasSubstr("_FileSystemType"))) << type->str(1);
    }
    EXPECT_EQ(count, 5);
}

TEST(Pages, TheCompletionOffersEachColumn) {
    const std::string completion = page("packaging/completion/oxtfsctl");
    std::smatch list;
    ASSERT_TRUE(std::regex_search(completion, list, std::regex("columns=\\(([^)]*)\\)")));
    Look look;
    look.columns = {"none"};
    try {
        columnsOf(look, {});
        ADD_FAILURE() << "no column is called so";
    } catch (const Failure &failure) {
        EXPECT_THAT(failure.what(),
                    EndsWith("The columns are " + std::regex_replace(list.str(1), std::regex(" "), ", ") + "."));
    }
}

TEST(Pages, TheyTellTheProvidersNumbers) {
    const auto percent = [](double share) { return std::to_string(std::lround(share * 100)) + " %"; };
    const std::string warning = percent(OXT_FS_WARNING_SHARE), fatal = percent(OXT_FS_FATAL_SHARE);
    const std::string least = "at least " + std::to_string(OXT_FS_MIN_SIZE) + " MiB", cycle = cycleRange();
    const std::string standard = std::to_string(OXT_CYCLE_DEFAULT), project = std::to_string(OXT_SHMKEY_PROJECT);
    const std::pair<const char *, std::string> told[] = {
        {"README.md", "a warning at " + warning + " free space, fatal at " + fatal},
        {"README.md", least},
        {"docs/operating.md", "go back to " + warning + " and " + fatal + " of the new size"},
        {"docs/operating.md", least},
        {"docs/operating.md", "cycle, " + cycle + " s"},
        {"docs/formats.md", "the project number " + project},
        {"docs/formats.md", "seconds between two passes | " + standard + " |"},
        {"docs/formats.md", "`MonitorCycleMin`: seconds | " + std::to_string(OXT_CYCLE_MIN) + " |"},
        {"docs/formats.md", "`MonitorCycleMax`: seconds | " + std::to_string(OXT_CYCLE_MAX) + " |"},
        {"docs/formats.md", "`MonitorCycleDefault`: seconds | " + standard + " |"},
        {"packaging/OXT_FileSystem.mof", "by itself: " + warning + " of the size"},
        {"packaging/OXT_FileSystem.mof", "by itself: " + fatal + " of the size"},
        {"packaging/OXT_FileSystem.mof", least},
        {"packaging/OXT_FileSystem.mof", cycle + " seconds"},
        {"packaging/man/oxtfs-provider.7.in", "warning threshold is " + warning + " of the size and their"},
        {"packaging/man/oxtfs-provider.7.in", "fatal threshold " + fatal + ":"},
        {"packaging/man/oxtfs-provider.7.in", least},
        {"packaging/man/oxtfs-provider.7.in", cycle + ", " + standard + " at first"},
        {"packaging/man/oxtfsctl.1.in", cycle + " seconds"},
        {"packaging/man/oxtfsctl.1.in", least},
        {"packaging/man/oxtfs.toml.5.in", cycle},
        {"packaging/settings/oxtfs.toml", cycle},
    };
    for (const auto &[name, text] : told)
        EXPECT_NE(page(name).find(text), std::string::npos) << name << " lacks: " << text;
    try {
        refuse(CMPI_RC_ERR_FAILED, "SetValue(MonitorCycle) FAILED");
    } catch (const Failure &failure) {
        EXPECT_THAT(failure.what(), HasSubstr(cycle));
    }
}

} // namespace

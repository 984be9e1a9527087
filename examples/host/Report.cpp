#include "Report.h"

#include "kiv/core/Buffer.h"
#include "kiv/script/Class.h"
#include "kiv/system/System.h"

#include <algorithm>

// ---- What the script sees.

kiv::SmartPointer<ScriptStudy> ScriptStudy::bind(kivSq::VM& vm, StudyFolder& folder) {
    const kivSq::Object root = vm.getRootTable();
    kivSq::Class<ScriptStudy>(vm.getNamespace("host"), "Study")
        .property("slices", &ScriptStudy::getSlices)
        .property("maximum", &ScriptStudy::getMaximum)
        .readonlyMember("isOver", &ScriptStudy::isOver)
        .method("findings", &ScriptStudy::getFindings);
    auto study = kiv::makeObject<ScriptStudy>(folder);
    root.set("study", kivSq::Object::from(study));
    return study;
}

int64_t ScriptStudy::getSlices() const {
    const study::Geometry* geometry = m_folder.getCollection().getGeometry();
    return geometry ? geometry->slices : 0;
}

int64_t ScriptStudy::getMaximum() const {
    const study::Geometry* geometry = m_folder.getCollection().getGeometry();
    return geometry ? geometry->maximum : 0;
}

kivSq::Object ScriptStudy::getFindings(uint32_t slice) const {
    const kiv::Item* findings = m_folder.getStore().getFindings(slice);
    return findings ? kivSq::Object::from(*findings) : kivSq::Object();
}

// ---- The script.

bool Report::start(const std::string& path) {
    kiv::Buffer source;
    if (!source.loadFromFile(path.c_str(), false)) return false;
    kivSq::VM& vm = *kiv::System::getVM();
    const kivSq::Object closure =
        vm.newClosure(reinterpret_cast<const char*>(source.getBytePointer()), source.getSize(), path.c_str());
    if (!closure) return false;
    m_study = ScriptStudy::bind(vm, m_folder);
    m_isRunning = true;
    vm.createThread(closure, [this](const kivSq::Object& result, bool) {
        m_isRunning = false;
        take(result);
    });
    return true;
}

void Report::setOver() {
    if (m_study) m_study->isOver = true;
}

void Report::take(const kivSq::Object& result) {
    Numbers numbers;
    std::string text;
    const bool isWhole = result.get("text").to(text) && result.get("min").to(numbers.least) &&
                         result.get("max").to(numbers.greatest) && result.get("mean").to(numbers.mean);
    if (!isWhole) return;
    const kivSq::Object histogram = result.get("histogram");
    for (const kivSq::Object& count : histogram.asArray().getValues())
        if (!count.to(numbers.histogram.emplace_back())) return;
    m_text = text;
    m_numbers = numbers;
}

bool Report::agreesWith(const SliceStatistics::Sums& all, uint64_t samples) const {
    return m_numbers && m_numbers->least == all.least && m_numbers->greatest == all.greatest &&
           m_numbers->mean == static_cast<double>(all.sum) / static_cast<double>(samples) &&
           std::equal(m_numbers->histogram.begin(), m_numbers->histogram.end(), all.histogram.begin(),
                      all.histogram.end());
}

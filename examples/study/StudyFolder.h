#pragma once

#include "Collection.h"
#include "StudyStore.h"

#include "kiv/data/FilePacketWriter.h"

#include <chrono>
#include <optional>
#include <string>

namespace CLI {
class App;
}

// A study in a folder, in all the forms it is kept in: its packets in a file as they came, the store, the pictures.
// At the end all of them are checked against each other. Says what it has done, and complains, on the standard streams.
class StudyFolder {
public:
    struct Options {
        std::string folder = "collected";
        std::optional<uint32_t> slice;
        unsigned columns = 0;
        bool drawsSlice = true;

        void describe(CLI::App& app);
    };

    // `program` is who speaks.
    StudyFolder(const char* program, const Options& options);

    // Makes the folder and the packet file.
    bool open();
    bool isOpen() const { return m_writer && m_writer->isOpen(); }
    // A packet that has come, raw or fitted.
    Collection::Result take(kiv::Packet& packet);
    // Behind the last packet: keeps the rest, checks everything and shows one slice. False when anything was lost or
    // could not be kept.
    bool finish();

    const Collection& getCollection() const { return m_collection; }
    StudyStore& getStore() { return m_store; }
    // How far it is, to be shown meanwhile.
    std::string describeProgress() const;
    // For a closing line; `more` stands before the losses.
    std::string summarise(const std::string& more = {}) const;
    void countRefused() { ++m_refused; }
    bool hasRefused() const { return m_refused != 0; }
    void complain(const std::string& text) const;

private:
    using Time = std::chrono::steady_clock::time_point;

    bool closeFile();
    bool checkCompleteness() const;
    bool checkFile() const;
    bool keepStore();
    bool writePictures() const;
    void draw() const;
    double getSeconds() const;

    const std::string m_program;
    const Options m_options;
    const std::string m_packetPath;
    Collection m_collection;
    StudyStore m_store{m_collection};
    std::optional<kiv::FilePacketWriter> m_writer;
    uint64_t m_packets = 0; // that were taken and kept
    uint64_t m_bytes = 0;   // of their payloads
    uint64_t m_refused = 0;
    uint64_t m_repeated = 0;
    std::optional<Time> m_begin; // the first packet
    std::optional<Time> m_end;
};

// plant_server - records the machine it runs on and serves what it has recorded; or stands by for a server that does.
//
//     plant_server CONFIGURATION DATA --listen 127.0.0.1:4700 --test-users
//     plant_server CONFIGURATION DATA2 --listen 127.0.0.1:4701 --test-users --name standby --standby localhost:4700
//
// docs/plant.md tells what it does and what lies in its folders. It says where it listens on the standard output and
// everything else on the error stream, and stops on SIGTERM and SIGINT.
//
// Exit codes: 0 stopped; 1 it could not start, and the log says why; 2 usage.
#include "PlantLog.h"
#include "Server.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <csignal>

int main(int argc, char** argv) {
    ServerOptions options;
    std::string configuration;
    std::string data;
    unsigned int every = 100;
    unsigned int flushEvery = 100;
    unsigned int keepHouseEvery = 10'000;
    CLI::App app("Records this machine and serves what was recorded, or stands by for a server that does.");
    app.add_option("CONFIGURATION", configuration, "Folder of plant.json, user-rights.conf and Certificates")
        ->required()
        ->check(CLI::ExistingDirectory);
    app.add_option("DATA", data, "Folder of the historic table; made where it is missing")->required();
    app.add_option("--name", options.m_Name, "This server's name, of its certificate too")
        ->capture_default_str()
        ->check([](const std::string& name) {
            return std::string(name.size() <= 64 && name != "authority" ? ""
                                                                        : "that cannot be a server's name");
        });
    app.add_option("--listen", options.m_Listen, "HOST:PORT; port 0 is one that is free")
        ->capture_default_str();
    app.add_option("--standby", options.m_Main, "HOST:PORT of the main to stand by for");
    app.add_flag("--test-users", options.m_bTestUsers, "Passwords are those in users.json, not the system's");
    app.add_option("--pam", options.m_PamService, "Service of PAM that checks passwords")
        ->capture_default_str();
    app.add_option("--every", every, "Milliseconds between samples")
        ->capture_default_str()
        ->check(CLI::Range(1, 3'600'000));
    app.add_option("--flush-every", flushEvery, "Milliseconds between writes to the disk")
        ->capture_default_str()
        ->check(CLI::Range(1, 3'600'000));
    app.add_option("--keep-house-every", keepHouseEvery, "Milliseconds between trims and splits")
        ->capture_default_str()
        ->check(CLI::Range(1, 3'600'000));
    app.add_option("--max-records", options.m_Recorder.m_MaxRecords, "Records to keep")
        ->capture_default_str();
    app.add_option("--max-file-size", options.m_Recorder.m_MaxFileSize, "Bytes of a file of the table")
        ->capture_default_str()
        ->check(CLI::Range(65'536U, 1U << 30));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    qv_catch_stop_signals();
    std::signal(SIGPIPE, SIG_IGN); // a client that is gone is an error like any other
    PlantLog log;
    try {
        options.m_ConfigurationFolder = CQVFilePath(configuration);
        options.m_DataFolder = CQVFilePath(data);
        options.m_Recorder.m_Every = std::chrono::milliseconds(every);
        options.m_Recorder.m_FlushEvery = std::chrono::milliseconds(flushEvery);
        options.m_Recorder.m_KeepHouseEvery = std::chrono::milliseconds(keepHouseEvery);
        Server server(options, log);
        std::printf("listening on %s\n", server.GetAddress().c_str());
        std::fflush(stdout);
        server.Run();
    } catch (const std::exception& error) {
        log.PrintError("%s", error.what());
        return 1;
    }
    return 0;
}

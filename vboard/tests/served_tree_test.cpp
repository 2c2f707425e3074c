// What programs can do to a tree that is served: change it, write paths and any bytes, wait in
// open(2), and find it gone. Each test serves a small tree of its own, on /mnt, to a process of its
// own.

#include "serve/attribute.h"
#include "tests/served_process.h"

#include <sys/stat.h>

#include <thread>

namespace vb::served_tree_test {
namespace {

// Directories can be made and removed in it, and links to what the tree has.
class Shelf : public Directory {
  public:
    int make_directory(const std::string& name) override {
        put(name, std::make_shared<Shelf>());
        return 0;
    }
    int remove_directory(const std::string& name) override {
        bool empty = true;
        const auto look = [&](const std::string&, const std::shared_ptr<Entry>&) { empty = false; };
        dynamic_cast<Directory&>(*find(name)).for_each(look);
        return empty ? remove_link(name) : ENOTEMPTY;
    }
    int make_link(const std::string& name, const LinkCall& call) override {
        if (!call.target.entry) {
            return EXDEV;
        }
        put(name, std::make_shared<Symlink>(call.target.path));
        return 0;
    }
    int remove_link(const std::string& name) override { return take(name) ? 0 : ENOENT; }
    bool finds_targets() const override { return true; }
};

// Nobody gets in before it is up.
class Gate : public Node {
  public:
    Gate() : Node(S_IFREG | 0666) {}
    Outcome open(const OpenCall&, std::unique_ptr<File>& file) override {
        if (!up) {
            return Outcome::wait();
        }
        file = std::make_unique<File>();
        return Outcome::done();
    }
    bool up = false;
};

struct Served {
    Board board;
    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
    std::string blob = std::string("a\0b", 3);
    std::string target; // what the path led to that was written last

    explicit Served(const TemporaryFolder& folder) : board(BoardClock::create(folder / "clock")) {
        Tree& tree = board.tree();
        tree.put("/mnt/shelf", std::make_shared<Shelf>());
        tree.put("/mnt/box/blob", std::make_shared<Attribute>([this] { return blob; },
                                                              [this](const WriteCall& call) {
                                                                  blob.assign(call.data.begin(),
                                                                              call.data.end());
                                                                  return 0;
                                                              }));
        const auto path = std::make_shared<Attribute>(
            nullptr, [this](WriteCall& call) { return take(call.target); });
        path->take_paths();
        tree.put("/mnt/box/path", path);
        tree.put("/mnt/gate", gate);
        serve(board, folder.path(), {"/mnt"});
    }

    int take(Found& found) {
        if (found.entry) {
            target = "entry " + found.path;
        } else if (found.file) {
            target = std::string(found.writable ? "rw " : "ro ") +
                     std::to_string(lseek(found.file.get(), 0, SEEK_END));
        }
        return found.error;
    }

    std::size_t events(const char* kind) {
        std::size_t count = 0;
        board.act([&] { count = board.trace().after(0, {{"kind", kind}}).size(); });
        return count;
    }
};

int error_of(int result) {
    return result < 0 ? errno : 0;
}

int write_to(const char* path, const std::string& text) {
    const UniqueFd file = plain::open(path, O_WRONLY);
    return error_of(static_cast<int>(write(file.get(), text.data(), text.size())));
}

TEST(ServedTree, IsChangedByItsDirectoriesOnly) {
    in_a_process_of_its_own<Served>([](Served& served) {
        EXPECT_EQ(error_of(mkdir("/mnt/box/new", 0755)), EPERM);
        EXPECT_EQ(error_of(mkdir("/mnt/shelf/a", 0755)), 0);
        EXPECT_EQ(error_of(mkdir("/mnt/shelf/a/deep", 0755)), 0);
        EXPECT_EQ(error_of(mkdir("/mnt/shelf/a", 0755)), EEXIST);
        EXPECT_EQ(error_of(rmdir("/mnt/shelf/a")), ENOTEMPTY);

        ASSERT_EQ(chdir("/mnt/shelf/a"), 0);
        EXPECT_EQ(error_of(symlink("../../box", "/mnt/shelf/link")), 0) << "from here, not there";
        EXPECT_EQ(std::filesystem::read_symlink("/mnt/shelf/link"), "/mnt/box");
        EXPECT_EQ(error_of(symlink("nowhere", "/mnt/shelf/lost")), ENOENT);
        EXPECT_EQ(error_of(symlink("/etc/passwd", "/mnt/shelf/lost")), EXDEV);
        EXPECT_EQ(error_of(unlink("/mnt/shelf/link")), 0);

        served.board.faults().add("/mnt/shelf/b:mkdir:ENOSPC:once");
        EXPECT_EQ(error_of(mkdir("/mnt/shelf/b", 0755)), ENOSPC);
        EXPECT_EQ(served.events("mkdir"), 4U) << "the kernel itself knew that it exists";
        EXPECT_EQ(served.events("symlink"), 3U);
        EXPECT_EQ(served.events("unlink"), 1U);

        EXPECT_EQ(error_of(rename("/mnt/shelf/a", "/mnt/shelf/b")), EPERM);
        EXPECT_EQ(error_of(link("/mnt/box/blob", "/mnt/shelf/b")), EPERM);
        EXPECT_EQ(error_of(mknod("/mnt/shelf/b", S_IFIFO | 0644, 0)), EPERM);
        EXPECT_EQ(error_of(creat("/mnt/shelf/b", 0644)), EACCES);
    });
}

TEST(ServedTree, FindsPathsWhileSomebodyElseRenames) {
    in_a_process_of_its_own<Served>([](Served& served) {
        const TemporaryFolder folder;
        std::filesystem::create_directories(folder / "one");
        const std::jthread renamer([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                std::filesystem::rename(folder / "one", folder / "two");
                std::filesystem::rename(folder / "two", folder / "one");
            }
        });
        for (int times = 0; times < 300; ++times) {
            ASSERT_EQ(error_of(symlink("/mnt/shelf/../box", "/mnt/shelf/link")), 0) << times;
            ASSERT_EQ(error_of(unlink("/mnt/shelf/link")), 0);
        }
        EXPECT_EQ(served.events("symlink"), 300U);
    });
}

TEST(ServedTree, TakesAnyBytesAndPathsAsTheirWriterSeesThem) {
    in_a_process_of_its_own<Served>([](Served& served) {
        EXPECT_EQ(contents_of("/mnt/box/blob"), std::string("a\0b", 3));
        EXPECT_EQ(write_to("/mnt/box/blob", std::string("\0\n\0", 3)), 0);
        EXPECT_EQ(served.blob, std::string("\0\n\0", 3));

        const TemporaryFolder folder;
        std::ofstream(folder / "image") << "0123456789";
        std::filesystem::create_symlink("image", folder / "link");
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
        EXPECT_EQ(write_to("/mnt/box/path", "link\n"), 0);
        EXPECT_EQ(served.target, "rw 10");
        EXPECT_EQ(write_to("/mnt/box/path", "/mnt/shelf/../box/blob"), 0);
        EXPECT_EQ(served.target, "entry /mnt/box/blob");
        EXPECT_EQ(write_to("/mnt/box/path", "none"), ENOENT);
        EXPECT_EQ(write_to("/mnt/box/path", "\n"), ENOENT);
    });
}

TEST(ServedTree, TakesWhatIsBelowADirectoryAlong) {
    in_a_process_of_its_own<Served>([](Served& served) {
        ASSERT_EQ(chdir("/mnt/box"), 0);
        const UniqueFd blob = plain::open("blob", O_RDONLY);
        served.board.act([&] { EXPECT_TRUE(served.board.vanish("/mnt/box")); });
        char byte = 0;
        EXPECT_EQ(plain::read(blob, &byte, 1), -ENODEV);
        EXPECT_FALSE(plain::open("blob", O_RDONLY));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_TRUE(std::filesystem::is_empty(".")) << "not even . and .. are there";
        served.board.act([&] { EXPECT_TRUE(served.board.appear("/mnt/box")); });
        EXPECT_TRUE(plain::open("blob", O_RDONLY));
        EXPECT_EQ(plain::read(blob, &byte, 1), -ENODEV) << "the old open stays dead";
    });
}

TEST(ServedTree, LetsAnOpenWait) {
    in_a_process_of_its_own<Served>([](Served& served) {
        EXPECT_FALSE(plain::open("/mnt/gate", O_RDWR | O_NONBLOCK));
        EXPECT_EQ(errno, EAGAIN);
        std::jthread caller([] { EXPECT_TRUE(plain::open("/mnt/gate")); });
        Json calls = Json::array();
        while (calls.empty()) {
            served.board.act([&] { calls = served.board.traffic().list(); });
        }
        EXPECT_EQ(calls[0]["node"], "/mnt/gate");
        EXPECT_EQ(calls[0]["operation"], "open");
        served.board.act([&] { served.gate->up = true; });
    });
}

} // namespace
} // namespace vb::served_tree_test

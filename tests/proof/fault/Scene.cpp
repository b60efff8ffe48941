#include "Scene.h"

namespace zd::test {

void CScene::Reset() {
    Store().ClearRules();
    for (const std::string& name : Store().Names("pool")) Store().Remove("pool/" + name);
    Store().ClearCalls();
    m_manager = m_connected;
}

void CScene::End() {
    Store().ClearRules();
    for (const Handle handle : m_handles) {
        m_manager->ZdCloseFile(handle, 0);
        m_manager->ZdReleaseFile(handle);
    }
    m_handles.clear();
    if (m_manager != m_connected) m_environment.ReleaseManager(m_manager);
    m_manager = m_connected;
    Store().ClearCalls();
    m_environment.ForgetLog();
}

void CScene::MakeFragments(const std::string& name, const std::vector<std::string>& contents) {
    for (std::size_t i = 0; i < contents.size(); ++i) {
        Store().MakeFile("pool/" + name + (i == 0 ? std::string() : ";F" + std::to_string(i)), contents[i]);
    }
}

void CScene::SetSddl(const std::string& path, const std::string& sddl) {
    NodeState state = Store().State(path);
    state.sddl = sddl;
    EXPECT_TRUE(Store().SetState(path, state));
}

Handle CScene::Open(const std::wstring& name, DWORD access, DWORD isDirectory) {
    Handle handle = 0;
    DWORD action = 0;
    FileInformation information{};
    EXPECT_EQ(0U, m_manager->ZdCreateFile(name.c_str(), isDirectory, 0, 0, 0, kZdOpen, access, 0, nullptr, &handle,
                                          &action, &information));
    Own(handle);
    return handle;
}

CPrepare FileOf(const std::vector<std::string>& fragments, bool shut) {
    return [fragments, shut](CScene& scene) {
        scene.MakeFragments("f", fragments);
        const Handle handle = scene.Open(L"\\f");
        if (shut) return scene.Shut(handle);
        std::string all(100, '\0');
        DWORD count = 0;
        EXPECT_EQ(0U, scene.Manager().ZdReadFile(handle, 0, 100, all.data(), &count));
    };
}

}  // namespace zd::test

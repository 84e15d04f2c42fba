#include "config/scene.h"

#include "config/json_fields.h"
#include "config/text_index.h"

#include <algorithm>

ListNode scenesListHead = {&scenesListHead, &scenesListHead};
std::atomic<int> scenesize;

static constexpr JsonField<Scene> SCENE_FIELDS[] = {
    {"title", &Scene::title, WRITE},  // read beside the table: it is stored only when it differs
    {"invisible", &Scene::invisible}, {"ID", &Scene::ID},
    {"icon_name", &Scene::icon_name}, {"icon", &Scene::icon},
};

Scene *callocScene()
{
    auto *scene = callocRecord<Scene>();
    if (scene) {
        listInit(&scene->comps);
        listInit(&scene->node);
    }
    return scene;
}

Comp *callocComp()
{
    auto *comp = callocRecord<Comp>();
    if (comp)
        listInit(&comp->node);
    return comp;
}

BuildinSiren *callocBuildinSiren()
{
    return callocRecord<BuildinSiren>();
}

bool copyComps(const ListNode *source, ListNode *destination)
{
    for (const Comp &comp : ELEMENTS(Comp, node, source)) {
        Comp *copy = callocComp();
        if (!copy)
            return false;
        copy->value = comp.value;
        copy->target = comp.target;
        listAddTail(&copy->node, destination);
    }
    return true;
}

static bool copyContents(Scene &scene, const Scene &source)
{
    // Deliberate: invisible and ID are not copied.
    strcpy(scene.title, source.title);
    strcpy(scene.icon_name, source.icon_name);
    strcpy(scene.icon, source.icon);
    if (source.buildinSiren) {
        scene.buildinSiren = callocBuildinSiren();
        if (!scene.buildinSiren)
            return false;
        scene.buildinSiren->siren_type = source.buildinSiren->siren_type;
    }
    return copyComps(&source.comps, &scene.comps);
}

Scene *copyScene(const Scene *sceneSrc)
{
    if (!sceneSrc) {
        LOG(ERROR, "sceneSrc == NULL\n");
        return nullptr;
    }
    Scene *scene = callocScene();
    if (!scene)
        return nullptr;
    bool whole;
    {
        const MutexLock lock(Macro_op_mutex);
        whole = copyContents(*scene, *sceneSrc);
    }
    if (whole)
        return scene;
    freeScene(scene);
    return nullptr;
}

Scene *searchScene(ListNode *head, const char *title)
{
    if (!title) {
        LOG(ERROR, "title is NULL\n");
        return nullptr;
    }
    if (!head) {
        LOG(ERROR, "head is NULL\n");
        return nullptr;
    }
    return findByText(ELEMENTS(Scene, node, head), &Scene::title, title);
}

Comp *searchComp(Integer dev, Integer if_, Integer ch, ListNode *head)
{
    return findByTarget(ELEMENTS(Comp, node, head), {dev, if_, ch});
}

int searchanddelComp(Integer dev, Integer if_, Integer ch, ListNode *head)
{
    Comp *comp = searchComp(dev, if_, ch, head);
    if (!comp)
        return 0;
    freeComp(comp);
    return 1;
}

void freeComp(Comp *comp)
{
    listDel(&comp->node);
    freeMem(comp);
}

void freeComps(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Comp &comp : ELEMENTS(Comp, node, head))
        freeComp(&comp);
}

void freeScene(Scene *scene)
{
    if (!scene) {
        LOG(ERROR, "scene is NULL\n");
        return;
    }
    const MutexLock lock(Macro_op_mutex);
    freeComps(&scene->comps);
    if (scene->buildinSiren) {
        freeMem(scene->buildinSiren);
        scene->buildinSiren = nullptr;
    }
    listDel(&scene->node);
    freeMem(scene);
}

void freeScenes(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Scene &scene : ELEMENTS(Scene, node, head))
        freeScene(&scene);
}

void listComps(ListNode *head)
{
    for (const Comp &comp : ELEMENTS(Comp, node, head)) {
        LOG(DEBUG, "dev: %lld if: %lld ch: %lld value: %lld\n", comp.target.dev, comp.target.if_,
            comp.target.ch, comp.value);
    }
}

void listScene(Scene *scene)
{
    if (!scene)
        return;
    const MutexLock lock(Macro_op_mutex);
    LOG(DEBUG, "title: %s icon_name: %s icon: %s invisible: %lld ID: %lld\n", scene->title,
        scene->icon_name, scene->icon, scene->invisible, scene->ID);
    if (scene->buildinSiren)
        LOG(DEBUG, "siren_type: %lld\n", scene->buildinSiren->siren_type);
    listComps(&scene->comps);
}

void listScenes(ListNode *head)
{
    for (Scene &scene : ELEMENTS(Scene, node, head))
        listScene(&scene);
}

int setBuildinSiren(json_t *object, Scene *scene)
{
    const json_t *type = json_object_get(object, "siren_type");
    if (!json_is_integer(type)) {
        LOG(ERROR, "siren_type is not an integer\n");
        return 0;
    }
    if (!scene->buildinSiren)
        scene->buildinSiren = callocBuildinSiren();
    if (!scene->buildinSiren)
        return 0;
    scene->buildinSiren->siren_type = json_integer_value(type);
    return 1;
}

int setComp(json_t *object, ListNode *head)
{
    TargetId target;
    getTarget(target, json_object_get(object, "target"));
    Comp *comp = searchComp(target.dev, target.if_, target.ch, head);
    if (!comp) {
        LOG(DEBUG, "callocComp #1 \n");
        comp = callocComp();
        if (!comp)
            return 0;
        comp->target = target;
        listAddTail(&comp->node, head);
    }
    comp->value =
        json_integer_value(json_object_get(object, "value"));  // 0 when it is absent or no integer
    return 1;
}

int setComps(json_t *array, ListNode *head)
{
    int stored = 0;
    for (json_t *comp : OBJECTS_NAMED(array, "in %s,comps %d data is not an object\n"))
        stored |= setComp(comp, head);
    return stored;
}

int setScene(json_t *object, Scene *sceneBuf)
{
    if (!json_is_object(object)) {
        LOG(ERROR, "in %s,scene is not an object\n", __func__);
        return 0;
    }
    if (!sceneBuf) {
        LOG(ERROR, "sceneBuf is NULL\n");
        return 0;
    }
    int stored = 0;
    const char *title = memberText(object, "title");
    if (title)
        stored |= strcmp(sceneBuf->title, title) == 0 ? 1 : JsonStrCopy(sceneBuf->title, title);
    stored |= readFields(object, *sceneBuf, SCENE_FIELDS);
    stored |= setComps(json_object_get(object, "comps"), &sceneBuf->comps);
    json_t *siren = json_object_get(object, "buildinSiren");
    if (json_is_object(siren))
        stored |= setBuildinSiren(siren, sceneBuf);
    return stored;
}

Scene *setNewScene(json_t *object)
{
    Scene *scene = callocScene();
    if (scene)
        setScene(object, scene);
    return scene;
}

static int setOneScene(json_t *object, TextIndex<Scene> &index)
{
    const char *title = memberText(object, "title");
    if (!title)
        LOG_AS("searchScene", ERROR, "title is NULL\n");
    {
        const MutexLock lock(scenesList_mutex);
        Scene *scene = index.find(title);
        if (scene)
            return setScene(object, scene);
    }
    Scene *scene = setNewScene(object);
    if (!scene)
        return 0;
    const MutexLock lock(scenesList_mutex);
    listAddTail(&scene->node, &scenesListHead);
    index.add(*scene);
    return 1;
}

int setScenes(json_t *array)
{
    const int size = static_cast<int>(json_array_size(array));
    LOG(DEBUG, "json_array_size %d\n", size);
    scenesize = std::max(scenesize.load(), size);
    LOG(DEBUG, "maximun json_array_size %d\n", scenesize.load());
    TextIndex<Scene> index(ELEMENTS(Scene, node, &scenesListHead), &Scene::title,
                           json_array_size(array));
    int stored = 0;
    for (json_t *scene : OBJECTS_NAMED(array, "in %s,scenes %d data is not an object\n"))
        stored |= setOneScene(scene, index);
    return stored;
}

int delComp(json_t *object, ListNode *head)
{
    const json_t *targetObject = json_object_get(object, "target");
    if (!json_is_object(targetObject)) {
        LOG(ERROR, "target isn't object\n");
        return 0;
    }
    TargetId target;
    getTarget(target, targetObject);
    if (!searchanddelComp(target.dev, target.if_, target.ch, head))
        return 0;
    LOG(DEBUG, "delete dev %lld if %lld ch %lld\n", target.dev, target.if_, target.ch);
    return 1;
}

int delSceneComps(json_t *object, Scene *scene)
{
    int deleted = 0;
    if (json_is_object(json_object_get(object, "buildinSiren")) && scene->buildinSiren) {
        freeMem(scene->buildinSiren);
        scene->buildinSiren = nullptr;
        deleted = 1;
    }
    for (json_t *comp :
         OBJECTS_NAMED(json_object_get(object, "comps"), "in %s,comps %d data is not an object\n"))
        deleted |= delComp(comp, &scene->comps);
    return deleted;
}

int delScene(json_t *object)
{
    const MutexLock lock(scenesList_mutex);
    Scene *scene = searchScene(&scenesListHead, memberText(object, "title"));
    if (!scene)
        return 0;
    if (!delSceneComps(object, scene)) {
        LOG(DEBUG, "delete scene %s\n", scene->title);
        freeScene(scene);
    }
    return 1;
}

int delScenes(json_t *array)
{
    int deleted = 0;
    for (json_t *scene : OBJECTS_NAMED(array, "in %s,scenes %d data is not an object\n"))
        deleted |= delScene(scene);
    return deleted;
}

int renameSceneTitle(const char *oldTitle, const char *newTitle)
{
    const MutexLock lock(scenesList_mutex);
    return renameTitle(ELEMENTS(Scene, node, &scenesListHead), oldTitle, newTitle);
}

json_t *compToJson(const Comp *comp)
{
    json_t *object = json_object();
    json_object_set_new(object, "target", targetToJson(comp->target));
    json_object_set_new(object, "value", json_integer(comp->value));
    return object;
}

json_t *buildinSirenToJson(const BuildinSiren *siren)
{
    json_t *object = json_object();
    json_object_set_new(object, "siren_type", json_integer(siren->siren_type));
    return object;
}

json_t *sceneToJson(const Scene *scene)
{
    if (!scene) {
        LOG(ERROR, "scene is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeFields(object, *scene, SCENE_FIELDS);
    json_object_set_new(object, "comps", arrayOf(ELEMENTS(Comp, node, &scene->comps), compToJson));
    if (scene->buildinSiren)
        json_object_set_new(object, "buildinSiren", buildinSirenToJson(scene->buildinSiren));
    return object;
}

json_t *scenesToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Scene, node, head), sceneToJson);
}

json_t *scenesTitleToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Scene, node, head), titleToJson<Scene>);
}

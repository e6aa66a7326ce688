"""Layouts in which somebody else can have put something into the cache: none of it is executed or read, one warning says
why, and the program does as it should.

    hostile_layouts.py VESKC GROUP
"""
import os
import shutil
import socket
import stat
import sys

from place import EVIL, HONEST, OTHER, THIRD, Place, check_refused, chown_all, state_of, warnings_of

ANOTHER, WRITABLE, LINK = "belongs to another user", "others may write it", "is a link"


# ---- the way to the folder. Each function makes the layout and gives the reason to be named.


def cache_of_another(p):
    chown_all(p.cache, OTHER)
    return ANOTHER


def only_the_folder_is_anothers(p):
    os.chown(p.cache, OTHER, OTHER)
    return ANOTHER


def group_may_write_the_cache(p):
    p.cache.chmod(0o770)
    return WRITABLE


def all_may_write_the_cache(p):
    p.cache.chmod(0o777)
    return WRITABLE


def cache_is_a_sticky_folder(p):
    p.cache.chmod(0o1777)
    return WRITABLE


def cache_is_a_sticky_folder_of_a_group(p):
    p.cache.chmod(0o1770)
    return WRITABLE


def parent_of_another(p):
    os.chown(p.way, OTHER, OTHER)
    return ANOTHER


def group_may_write_the_parent(p):
    p.way.chmod(0o775)
    return WRITABLE


def group_may_write_the_parent_that_passes_its_group_on(p):
    p.way.chmod(0o2775)
    return WRITABLE


def all_may_write_the_parent(p):
    p.way.chmod(0o757)
    return WRITABLE


def deeper(p, *names):
    """Moves the cache further down: <base>/way/<names>/cache."""
    folder = p.way.joinpath(*names)
    folder.mkdir(parents=True)
    p.cache.rename(folder / "cache")
    p.cache = folder / "cache"
    return folder


def grandparent_of_another(p):
    deeper(p, "a", "b")
    os.chown(p.way / "a", OTHER, OTHER)
    return ANOTHER


def group_may_write_the_grandparent(p):
    deeper(p, "a", "b")
    (p.way / "a").chmod(0o775)
    return WRITABLE


def sticky_parent_of_another(p):
    p.way.chmod(0o1777)
    os.chown(p.way, OTHER, OTHER)
    return ANOTHER


def anothers_cache_in_a_sticky_folder(p):
    p.way.chmod(0o1777)
    chown_all(p.cache, OTHER)
    return ANOTHER


def anothers_link_in_a_sticky_folder(p):
    p.way.chmod(0o1777)
    p.cache.rename(p.elsewhere / "cache")
    p.cache.symlink_to(p.elsewhere / "cache")
    os.lchown(p.cache, OTHER, OTHER)
    return ANOTHER


def own_link_to_anothers_cache(p):
    p.cache.rename(p.elsewhere / "cache")
    chown_all(p.elsewhere / "cache", OTHER)
    p.cache.symlink_to(p.elsewhere / "cache")
    return ANOTHER


def own_link_into_anothers_folder(p):
    p.cache.rename(p.elsewhere / "cache")
    os.chown(p.elsewhere, OTHER, OTHER)
    p.cache.symlink_to(p.elsewhere / "cache")
    return ANOTHER


def own_link_into_a_folder_that_others_may_write(p):
    p.cache.rename(p.elsewhere / "cache")
    p.elsewhere.chmod(0o777)
    p.cache.symlink_to("../elsewhere/cache")
    return WRITABLE


def link_behind_a_link_is_anothers(p):
    p.cache.rename(p.elsewhere / "cache")
    (p.elsewhere / "second").symlink_to("cache")
    os.lchown(p.elsewhere / "second", OTHER, OTHER)
    p.cache.symlink_to(p.elsewhere / "second")
    return ANOTHER


def parent_is_anothers_link(p):
    p.way.rename(p.base / "elsewhere" / "way")
    p.way.symlink_to("elsewhere/way")
    os.lchown(p.way, OTHER, OTHER)
    return ANOTHER


def link_up_and_down_through_anothers_folder(p):
    p.cache.rename(p.elsewhere / "cache")
    (p.elsewhere / "side").mkdir()
    os.chown(p.elsewhere / "side", OTHER, OTHER)
    p.cache.symlink_to("../elsewhere/side/../cache")
    return ANOTHER


def anothers_file_in_the_folders_place(p):
    shutil.rmtree(p.cache)
    p.cache.write_text("x")
    os.chown(p.cache, OTHER, OTHER)
    return ANOTHER


def anothers_pipe_in_the_folders_place(p):
    shutil.rmtree(p.cache)
    os.mkfifo(p.cache)
    os.chown(p.cache, OTHER, OTHER)
    return ANOTHER


def anothers_empty_folder(p):
    shutil.rmtree(p.cache)
    p.cache.mkdir()
    os.chown(p.cache, OTHER, OTHER)
    return ANOTHER


# ---- inside the folder. Machine code of the application's bundles is the plant.


def apps_folder_of_another(p):
    os.chown(p.cache / "apps", OTHER, OTHER)
    return ANOTHER


def group_may_write_apps(p):
    (p.cache / "apps").chmod(0o775)
    return WRITABLE


def apps_sticky(p):
    (p.cache / "apps").chmod(0o1777)
    return WRITABLE


def application_folder_of_another(p):
    os.chown(next((p.cache / "apps").iterdir()), OTHER, OTHER)
    return ANOTHER


def objects_folder_of_another(p):
    os.chown(p.planted_objects()[0].parent.parent, OTHER, OTHER)
    return ANOTHER


def all_may_write_the_package_folder(p):
    p.planted_objects()[0].parent.chmod(0o777)
    return WRITABLE


def apps_is_an_own_link(p):
    (p.cache / "apps").rename(p.elsewhere / "apps")
    (p.cache / "apps").symlink_to(p.elsewhere / "apps")
    return LINK


def apps_is_anothers_link(p):
    apps_is_an_own_link(p)
    os.lchown(p.cache / "apps", OTHER, OTHER)
    return ANOTHER


def objects_folder_is_a_link_to_anothers(p):
    objects = p.planted_objects()[0].parent.parent
    objects.rename(p.elsewhere / "objects")
    chown_all(p.elsewhere / "objects", OTHER)
    objects.symlink_to(p.elsewhere / "objects")
    return LINK


def package_folder_is_an_own_link(p):
    package = p.planted_objects()[0].parent
    package.rename(p.elsewhere / "package")
    package.symlink_to(p.elsewhere / "package")
    return LINK


def each_object(change, reason):
    def layout(p):
        for path in p.planted_objects():
            change(p, path)
        return reason

    return layout


def moved(p, path):
    target = p.elsewhere / path.name
    path.rename(target)
    return target


def make_link(p, path):
    path.symlink_to(moved(p, path))


def make_link_to_anothers(p, path):
    target = moved(p, path)
    os.chown(target, OTHER, OTHER)
    path.symlink_to(target)


def make_hard_link_to_anothers(p, path):
    target = moved(p, path)
    os.chown(target, OTHER, OTHER)
    os.link(target, path)


def make_hard_link_to_a_file_that_others_may_write(p, path):
    target = moved(p, path)
    target.chmod(0o666)
    os.link(target, path)


def make_anothers_pipe(p, path):
    path.unlink()
    os.mkfifo(path)
    os.chown(path, OTHER, OTHER)


def make_anothers_socket(p, path):
    path.unlink()
    here = os.getcwd()
    os.chdir(path.parent)  # names of sockets are short
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path.name[-90:])
    os.rename(path.name[-90:], path.name)
    os.chdir(here)
    os.chown(path, OTHER, OTHER)


def make_anothers_device(p, path):
    path.unlink()
    os.mknod(path, stat.S_IFCHR | 0o600, os.makedev(1, 5))  # endless zeros
    os.chown(path, OTHER, OTHER)


def make_anothers_folder(p, path):
    path.unlink()
    path.mkdir()
    os.chown(path, OTHER, OTHER)


object_of_another = each_object(lambda p, path: os.chown(path, OTHER, OTHER), ANOTHER)
object_of_a_third = each_object(lambda p, path: os.chown(path, THIRD, 0), ANOTHER)
group_may_write_the_object = each_object(lambda p, path: path.chmod(0o664), WRITABLE)
all_may_write_the_object = each_object(lambda p, path: path.chmod(0o602), WRITABLE)
object_is_an_own_link = each_object(make_link, LINK)
object_is_a_link_to_anothers = each_object(make_link_to_anothers, LINK)
object_is_a_hard_link_to_anothers = each_object(make_hard_link_to_anothers, ANOTHER)
object_is_a_hard_link_that_others_may_write = each_object(make_hard_link_to_a_file_that_others_may_write, WRITABLE)
object_is_anothers_pipe = each_object(make_anothers_pipe, ANOTHER)
object_is_anothers_socket = each_object(make_anothers_socket, ANOTHER)
object_is_anothers_device = each_object(make_anothers_device, ANOTHER)
object_is_anothers_folder = each_object(make_anothers_folder, ANOTHER)


# ---- other files of the cache: nothing is planted in the objects, the output is right, and the warning is there.


def each_file(pattern, change, reason):
    def layout(p):
        for path in p.files(pattern):
            if path.is_file():
                change(p, path)
        return reason

    return layout


bundle_of_another = each_file("*__GM_*.vk", lambda p, path: os.chown(path, OTHER, OTHER), ANOTHER)
group_may_write_the_bundle = each_file("*__GM_*.vk", lambda p, path: path.chmod(0o620), WRITABLE)
bundle_is_a_link = each_file("*__GM_*.vk", make_link, LINK)
bundle_is_a_hard_link_to_anothers = each_file("*__GM_*.vk", make_hard_link_to_anothers, ANOTHER)
bundle_is_anothers_pipe = each_file("*__GM_*.vk", make_anothers_pipe, ANOTHER)
bundle_is_anothers_folder = each_file("*__GM_*.vk", make_anothers_folder, ANOTHER)


def branches_folder_of_another(p):
    os.chown(p.cache / "branches", OTHER, OTHER)
    return ANOTHER


def branches_is_a_link(p):
    (p.cache / "branches").rename(p.elsewhere / "branches")
    (p.cache / "branches").symlink_to(p.elsewhere / "branches")
    return LINK


def without_bundles(p):
    """They have to be made anew, so their locks are taken."""
    for path in p.files("*__GM_*"):
        path.unlink()


def lock_folder_of_another(p):
    without_bundles(p)
    os.chown(p.cache / "branches" / ".artifact-locks", OTHER, OTHER)
    return ANOTHER


def lock_folder_is_a_link(p):
    without_bundles(p)
    locks = p.cache / "branches" / ".artifact-locks"
    locks.rename(p.elsewhere / "locks")
    locks.symlink_to(p.elsewhere / "locks")
    return LINK


def with_locks(change, reason):
    def layout(p):
        without_bundles(p)
        for path in p.files("*.lock"):
            change(p, path)
        return reason

    return layout


lock_of_another = with_locks(lambda p, path: os.chown(path, OTHER, OTHER), ANOTHER)
lock_is_a_link = with_locks(make_link, LINK)
lock_is_a_hard_link_to_anothers = with_locks(make_hard_link_to_anothers, ANOTHER)
lock_is_anothers_pipe = with_locks(make_anothers_pipe, ANOTHER)


# ---- what looks odd and is ours.


def own_link(p):
    p.cache.rename(p.elsewhere / "cache")
    p.cache.symlink_to("../elsewhere/cache")


def own_link_behind_a_link(p):
    own_link(p)
    p.cache.unlink()
    (p.elsewhere / "second").symlink_to(p.elsewhere / "cache")
    p.cache.symlink_to(p.elsewhere / "second")


def parent_is_an_own_link(p):
    p.way.rename(p.elsewhere / "way")
    p.way.symlink_to(p.elsewhere / "way")


def own_cache_in_a_sticky_folder(p):
    p.way.chmod(0o1777)


def own_file_with_two_names(p):
    for path in p.planted_objects():
        os.link(path, p.elsewhere / path.name)


def all_may_read(p):
    for path in [p.cache, *p.files("*")]:
        path.chmod(0o755 if path.is_dir() else 0o644)


GROUPS = {
    "way": [
        cache_of_another, only_the_folder_is_anothers, group_may_write_the_cache, all_may_write_the_cache,
        cache_is_a_sticky_folder, cache_is_a_sticky_folder_of_a_group, parent_of_another, group_may_write_the_parent,
        group_may_write_the_parent_that_passes_its_group_on, all_may_write_the_parent, grandparent_of_another,
        group_may_write_the_grandparent, sticky_parent_of_another, anothers_cache_in_a_sticky_folder,
        anothers_link_in_a_sticky_folder, own_link_to_anothers_cache, own_link_into_anothers_folder,
        own_link_into_a_folder_that_others_may_write, link_behind_a_link_is_anothers, parent_is_anothers_link,
        link_up_and_down_through_anothers_folder, anothers_file_in_the_folders_place, anothers_pipe_in_the_folders_place,
        anothers_empty_folder,
    ],
    "inside": [
        apps_folder_of_another, group_may_write_apps, apps_sticky, application_folder_of_another, objects_folder_of_another,
        all_may_write_the_package_folder, apps_is_an_own_link, apps_is_anothers_link, objects_folder_is_a_link_to_anothers,
        package_folder_is_an_own_link, object_of_another, object_of_a_third, group_may_write_the_object,
        all_may_write_the_object, object_is_an_own_link, object_is_a_link_to_anothers, object_is_a_hard_link_to_anothers,
        object_is_a_hard_link_that_others_may_write, object_is_anothers_pipe, object_is_anothers_socket,
        object_is_anothers_device, object_is_anothers_folder,
    ],
    "others": [
        bundle_of_another, group_may_write_the_bundle, bundle_is_a_link, bundle_is_a_hard_link_to_anothers,
        bundle_is_anothers_pipe, bundle_is_anothers_folder, branches_folder_of_another, branches_is_a_link,
        lock_folder_of_another, lock_folder_is_a_link, lock_of_another, lock_is_a_link, lock_is_a_hard_link_to_anothers,
        lock_is_anothers_pipe,
    ],
    "accepted": [
        own_link, own_link_behind_a_link, parent_is_an_own_link, own_cache_in_a_sticky_folder, own_file_with_two_names,
        all_may_read,
    ],
}


def check(p, group, layout):
    cache = p.cache
    p.reset(p.sound if group == "others" else p.planted)
    reason = layout(p)
    before = state_of(p.base)
    result = p.run()
    if group == "accepted":
        assert (result.returncode, result.stdout, result.stderr) == (0, EVIL, ""), result
    else:
        check_refused(result, reason)
        # Whatever was there is as it was.
        after = state_of(p.base)
        for path, state in before.items():
            assert after.get(path) == state, f"{path} has changed"
    p.cache = cache


def main():
    veskc, group = sys.argv[1:]
    failures = 0
    with Place(veskc) as p:
        for layout in GROUPS[group]:
            name = layout.__name__
            if name == "layout":
                name = next(key for key, value in globals().items() if value is layout)
            try:
                check(p, group, layout)
            except (AssertionError, OSError) as error:
                failures += 1
                print(f"{name}: {error}")
    print(f"{len(GROUPS[group])} layouts, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

// The address tells what is shown: links change it, and every view reads its state from it.
import { signal } from "@preact/signals";

export const place = signal(new URL(location.href));

/** Goes to an address of this page; `replace` leaves no step to go back to. */
export function go(href: string, replace = false) {
    const url = new URL(href, location.href);
    if (url.href === location.href) return;
    history[replace ? "replaceState" : "pushState"](null, "", url);
    const moved = url.pathname !== place.value.pathname;
    place.value = url;
    if (moved) {
        scrollTo(0, 0);
        document.querySelector<HTMLElement>("main")?.focus({ preventScroll: true });
    }
}

export const param = (name: string) => place.value.searchParams.get(name) ?? "";

/** The address with some of its parameters changed; "" takes one away. */
export function withParams(changes: Record<string, string>) {
    const url = new URL(place.value);
    for (const [name, value] of Object.entries(changes)) {
        if (value === "") url.searchParams.delete(name);
        else url.searchParams.set(name, value);
    }
    return url.pathname + url.search;
}

addEventListener("popstate", () => (place.value = new URL(location.href)));

document.addEventListener("click", (event) => {
    const link = (event.target as Element).closest?.("a");
    const plain = event.button === 0 && !event.metaKey && !event.ctrlKey && !event.shiftKey;
    if (!link || !plain || event.defaultPrevented || link.target || link.hasAttribute("download"))
        return;
    const url = new URL(link.href);
    if (url.origin === location.origin && !url.pathname.startsWith("/api/") && !url.hash) {
        event.preventDefault();
        go(url.href);
    }
});
